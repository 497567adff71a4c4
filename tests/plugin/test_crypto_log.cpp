// The crypto log: lines appended to /tmp/ZtEncodeLog/ZtCryptographic.log while that folder
// exists, each "yyyy-MM-dd hh:mm:ss [] - <message>\n" in UTF-8, and nothing at all otherwise.

#include "crypto_log.h"
#include "log_sandbox.h"

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QString>

#include <gtest/gtest.h>

namespace {

constexpr int kStampLength = 19; // "yyyy-MM-dd hh:mm:ss"

// Splits one appended line into its time stamp and what follows it; the stamp must have the
// log's exact shape and name a real local time.
struct StampedLine
{
    QDateTime stamp;
    QByteArray rest;
};

StampedLine splitStamp(const QByteArray &line)
{
    static const QRegularExpression shape(
        QStringLiteral("\\A[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\z"));
    const QString stamp = QString::fromLatin1(line.left(kStampLength));
    if (!shape.match(stamp).hasMatch())
        return {};
    return {QDateTime::fromString(stamp, QStringLiteral("yyyy-MM-dd hh:mm:ss")),
            line.mid(kStampLength)};
}

QDateTime nowToTheSecond()
{
    const QDateTime now = QDateTime::currentDateTime();
    return now.addMSecs(-now.time().msec());
}

} // namespace

TEST(CryptoLog, withoutTheFolderNothingIsCreated)
{
    if (QDir(QLatin1String(CryptoLogTap::kFolder)).exists())
        GTEST_SKIP() << CryptoLogTap::kFolder
                     << " exists on this machine (not made by this test), so the case without it "
                        "cannot be shown here";

    _logCrypto(QStringLiteral("[ZtCryptographic::WebCloseKey]"));
    EXPECT_FALSE(QDir(QLatin1String(CryptoLogTap::kFolder)).exists());
    EXPECT_FALSE(QFile::exists(QLatin1String(CryptoLogTap::kFile)));
}

TEST(CryptoLog, firstCallCreatesTheFile)
{
    CryptoLogTap tap;
    if (QFile::exists(QLatin1String(CryptoLogTap::kFile)))
        GTEST_SKIP() << CryptoLogTap::kFile
                     << " already exists on this machine, so its creation cannot be shown here";

    _logCrypto(QStringLiteral("first"));
    EXPECT_TRUE(QFile::exists(QLatin1String(CryptoLogTap::kFile)));
    EXPECT_EQ(tap.appendedMessages(), QStringList{QStringLiteral("first")});
}

TEST(CryptoLog, lineIsStampBracketsDashAndMessage)
{
    CryptoLogTap tap;
    const QDateTime before = nowToTheSecond();
    _logCrypto(QStringLiteral("[ZtCryptographic::WebOpenKey] start openkey "));
    const QDateTime after = QDateTime::currentDateTime();

    const QByteArray appended = tap.appended();
    const StampedLine line = splitStamp(appended);
    ASSERT_TRUE(line.stamp.isValid()) << appended.constData();
    EXPECT_EQ(line.rest, QByteArray(" [] - [ZtCryptographic::WebOpenKey] start openkey \n"));
    EXPECT_GE(line.stamp, before) << "the stamp is the local time of the call";
    EXPECT_LE(line.stamp, after) << "the stamp is the local time of the call";
}

TEST(CryptoLog, messageEndingInANewlineLeavesAnEmptyLine)
{
    CryptoLogTap tap;
    _logCrypto(QStringLiteral("[ZtCryptographic::WebZtDecode] start \n"));

    const StampedLine line = splitStamp(tap.appended());
    ASSERT_TRUE(line.stamp.isValid()) << tap.appended().constData();
    EXPECT_EQ(line.rest, QByteArray(" [] - [ZtCryptographic::WebZtDecode] start \n\n"));
}

TEST(CryptoLog, nonAsciiTextIsWrittenAsUtf8)
{
    CryptoLogTap tap;
    _logCrypto(QString::fromUtf8("解密失败 \xc3\xa9t\xc3\xa9 \xe2\x82\xac"));

    const StampedLine line = splitStamp(tap.appended());
    ASSERT_TRUE(line.stamp.isValid()) << tap.appended().constData();
    EXPECT_EQ(line.rest, QByteArray(" [] - "
                                    "\xe8\xa7\xa3\xe5\xaf\x86\xe5\xa4\xb1\xe8\xb4\xa5"
                                    " \xc3\xa9t\xc3\xa9 \xe2\x82\xac\n"));
}

TEST(CryptoLog, emptyMessageStillWritesALine)
{
    CryptoLogTap tap;
    _logCrypto(QString());

    const StampedLine line = splitStamp(tap.appended());
    ASSERT_TRUE(line.stamp.isValid()) << tap.appended().constData();
    EXPECT_EQ(line.rest, QByteArray(" [] - \n"));
}

TEST(CryptoLog, formatCharactersInTheMessageAreWrittenAsText)
{
    CryptoLogTap tap;
    _logCrypto(QStringLiteral("100% %s %n %d"));
    EXPECT_EQ(tap.appendedMessages(), QStringList{QStringLiteral("100% %s %n %d")});
}

TEST(CryptoLog, callsAppendWithoutTruncating)
{
    CryptoLogTap tap;
    _logCrypto(QStringLiteral("[ZtCryptographic::WebZtDecode] start "));
    _logCrypto(QStringLiteral("[ZtCryptographic::WebZtDecode] decode data spend time : [0.000000]S"));
    _logCrypto(QStringLiteral("[ZtCryptographic::WebCloseKey]"));

    EXPECT_EQ(tap.appendedMessages(),
              (QStringList{
                  QStringLiteral("[ZtCryptographic::WebZtDecode] start "),
                  QStringLiteral("[ZtCryptographic::WebZtDecode] decode data spend time : [0.000000]S"),
                  QStringLiteral("[ZtCryptographic::WebCloseKey]")}));
}

TEST(CryptoLog, folderIsFixedWhateverTheTemporaryDirectory)
{
    LogSandbox sandbox; // TMPDIR elsewhere
    CryptoLogTap tap;
    _logCrypto(QStringLiteral("fixed place"));

    EXPECT_EQ(tap.appendedMessages(), QStringList{QStringLiteral("fixed place")});
    EXPECT_FALSE(QDir(sandbox.tempPath() + QStringLiteral("/ZtEncodeLog")).exists());
}
