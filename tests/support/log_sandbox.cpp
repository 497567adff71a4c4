#include "log_sandbox.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <cstdlib>

namespace {
QByteArray readFrom(const QString &path, qint64 offset)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    file.seek(offset);
    return file.readAll();
}

// Cuts the stamp off each line; a line without the expected stamp is kept whole behind "!" so
// that an exact comparison fails visibly.
QStringList stripStamps(const QByteArray &bytes, const QRegularExpression &stamp)
{
    QStringList messages;
    QString text = QString::fromUtf8(bytes);
    if (text.endsWith(QLatin1Char('\n')))
        text.chop(1);
    if (text.isEmpty())
        return messages;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch match = stamp.match(line);
        messages.append(match.hasMatch() ? line.mid(match.capturedLength())
                                         : QLatin1Char('!') + line);
    }
    return messages;
}
} // namespace

LogSandbox::LogSandbox(CoreLog coreLog)
    : m_savedTmpdir(qgetenv("TMPDIR")), m_hadTmpdir(qEnvironmentVariableIsSet("TMPDIR"))
{
    qputenv("TMPDIR", QFile::encodeName(m_dir.path()));
    if (coreLog == CoreLog::On)
        enableCoreLog();
}

LogSandbox::~LogSandbox()
{
    if (m_hadTmpdir)
        qputenv("TMPDIR", m_savedTmpdir);
    else
        qunsetenv("TMPDIR");
}

QString LogSandbox::coreLogFolder() const
{
    return m_dir.path() + QStringLiteral("/ardlow");
}

QString LogSandbox::coreLogPath() const
{
    return coreLogFolder() + QStringLiteral("/penwick_core.log");
}

void LogSandbox::enableCoreLog()
{
    QDir().mkpath(coreLogFolder());
}

void LogSandbox::disableCoreLog()
{
    QDir(coreLogFolder()).removeRecursively();
}

bool LogSandbox::coreLogExists() const
{
    return QFile::exists(coreLogPath());
}

QByteArray LogSandbox::coreLogBytes() const
{
    return readFrom(coreLogPath(), 0);
}

QStringList LogSandbox::coreLogMessages() const
{
    static const QRegularExpression stamp(QStringLiteral("^[0-2][0-9]:[0-5][0-9]:[0-5][0-9]: "));
    return stripStamps(coreLogBytes(), stamp);
}

CryptoLogTap::CryptoLogTap()
{
    if (!QDir(QLatin1String(kFolder)).exists()) {
        QDir().mkpath(QLatin1String(kFolder));
        m_createdFolder = true;
    }
    const QFile file{QLatin1String(kFile)};
    m_createdFile = !file.exists();
    m_start = file.exists() ? file.size() : 0;
}

CryptoLogTap::~CryptoLogTap()
{
    if (m_createdFile)
        QFile::remove(QLatin1String(kFile));
    if (m_createdFolder)
        QDir().rmdir(QLatin1String(kFolder));
}

QByteArray CryptoLogTap::appended() const
{
    return readFrom(QLatin1String(kFile), m_start);
}

QStringList CryptoLogTap::appendedMessages() const
{
    static const QRegularExpression stamp(
        QStringLiteral("^20[0-9][0-9]-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-5][0-9] \\[\\] - "));
    return stripStamps(appended(), stamp);
}
