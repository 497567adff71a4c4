// The host log: levels, standard error by default, a file when configured.

#include "core/host_log.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

using namespace zthost;

namespace {

QString readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// Standard error sent to a file for the life of the capture.
class StandardErrorCapture
{
public:
    explicit StandardErrorCapture(const QString &path)
    {
        std::fflush(stderr);
        m_saved = dup(fileno(stderr));
        if (std::freopen(path.toLocal8Bit().constData(), "w", stderr) == nullptr)
            ADD_FAILURE() << "cannot redirect standard error";
    }
    ~StandardErrorCapture()
    {
        std::fflush(stderr);
        dup2(m_saved, fileno(stderr));
        close(m_saved);
    }

private:
    int m_saved;
};

} // namespace

TEST(HostLog, defaultsToStandardErrorAtWarningLevel)
{
    HostLog log;
    EXPECT_EQ(log.threshold(), LogLevel::Warning);
    EXPECT_EQ(log.destination(), HostLog::Destination::StandardError);
}

TEST(HostLog, standardErrorGetsWarningsAndErrorsOnly)
{
    QTemporaryDir dir;
    const QString captured = dir.filePath(QStringLiteral("stderr.txt"));
    {
        StandardErrorCapture capture(captured);
        HostLog log;
        log.debug(QStringLiteral("quiet detail"));
        log.warning(QStringLiteral("a warning"));
        log.error(QStringLiteral("an error"));
    }
    const QString text = readAll(captured);
    EXPECT_FALSE(text.contains(QStringLiteral("quiet detail"))) << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("[warning] a warning\n"))) << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("[error] an error\n"))) << text.toStdString();
}

TEST(HostLog, fileKeepsTheLevelOfEachLine)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("host.log"));
    HostLog log;
    ASSERT_TRUE(log.setFile(path));
    EXPECT_EQ(log.destination(), HostLog::Destination::File);
    log.setThreshold(LogLevel::Debug);
    log.debug(QStringLiteral("one"));
    log.warning(QStringLiteral("two"));
    log.error(QStringLiteral("three"));

    const QStringList lines = readAll(path).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral(" [debug] one")));
    EXPECT_TRUE(lines[1].endsWith(QStringLiteral(" [warning] two")));
    EXPECT_TRUE(lines[2].endsWith(QStringLiteral(" [error] three")));
}

TEST(HostLog, thresholdDropsLowerLevels)
{
    struct Row
    {
        LogLevel threshold;
        QStringList expected;
        const char *reason;
    };
    const Row rows[] = {
        {LogLevel::Debug, {"d", "w", "e"}, "debug lines when asked for"},
        {LogLevel::Warning, {"w", "e"}, "the default"},
        {LogLevel::Error, {"e"}, "errors only"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("host.log"));
        HostLog log;
        ASSERT_TRUE(log.setFile(path));
        log.setThreshold(row.threshold);
        log.debug(QStringLiteral("d"));
        log.warning(QStringLiteral("w"));
        log.error(QStringLiteral("e"));
        QStringList messages;
        for (const QString &line : readAll(path).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            messages << line.section(QLatin1Char(' '), -1);
        EXPECT_EQ(messages, row.expected);
    }
}

TEST(HostLog, fileIsAppendedToNeverTruncated)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("host.log"));
    {
        QFile earlier(path);
        ASSERT_TRUE(earlier.open(QIODevice::WriteOnly));
        earlier.write("earlier line\n");
    }
    HostLog log;
    ASSERT_TRUE(log.setFile(path));
    log.error(QStringLiteral("later line"));
    const QString text = readAll(path);
    EXPECT_TRUE(text.startsWith(QStringLiteral("earlier line\n")));
    EXPECT_TRUE(text.contains(QStringLiteral("[error] later line")));
}

TEST(HostLog, unusableFileIsNamedAndTheLogStaysPut)
{
    HostLog log;
    QString error;
    EXPECT_FALSE(log.setFile(QStringLiteral("/nonexistent-folder/host.log"), &error));
    EXPECT_TRUE(
        error.startsWith(QStringLiteral("cannot open host log /nonexistent-folder/host.log: ")))
        << error.toStdString();
    EXPECT_EQ(log.destination(), HostLog::Destination::StandardError);
}

TEST(HostLog, backToStandardError)
{
    QTemporaryDir dir;
    HostLog log;
    ASSERT_TRUE(log.setFile(dir.filePath(QStringLiteral("host.log"))));
    log.useStandardError();
    EXPECT_EQ(log.destination(), HostLog::Destination::StandardError);
}

TEST(HostLog, escapesControlCharactersAndCapsEachLine)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("host.log"));
    HostLog log;
    ASSERT_TRUE(log.setFile(path));
    log.warning(QStringLiteral("a\nforged [error] line\r\x1b[2J\x07") + QChar(0) + QChar(0x2028)
                + QStringLiteral("\\end"));
    log.warning(QString(HostLog::kMaxMessageChars + 10, QLatin1Char('x')));

    const QStringList lines = readAll(path).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].endsWith(
        QStringLiteral(" [warning] a\\nforged [error] line\\r\\x1b[2J\\x07\\x00\\u2028\\\\end")))
        << lines[0].toStdString();
    EXPECT_TRUE(lines[1].endsWith(QString(HostLog::kMaxMessageChars, QLatin1Char('x'))
                                  + QStringLiteral("...(4106 characters in all)")))
        << lines[1].right(60).toStdString();
}
