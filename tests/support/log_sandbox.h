#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

// A private temporary directory for one test: TMPDIR points at it for the test's life (so
// QDir::tempPath() does), and the core log is read from "ardlow/penwick_core.log" inside it.
// The core log is on only while "ardlow" exists. Everything is removed at the end and TMPDIR
// restored.
class LogSandbox
{
public:
    enum class CoreLog { Off, On };

    explicit LogSandbox(CoreLog coreLog = CoreLog::On);
    ~LogSandbox();
    LogSandbox(const LogSandbox &) = delete;
    LogSandbox &operator=(const LogSandbox &) = delete;

    QString tempPath() const { return m_dir.path(); }
    QString coreLogFolder() const;
    QString coreLogPath() const;

    void enableCoreLog();
    void disableCoreLog();
    bool coreLogExists() const;

    // The core log's bytes as written, time stamps included.
    QByteArray coreLogBytes() const;
    // The core log's lines with their "hh:mm:ss: " stamp checked and cut off. A line whose
    // newline was lost continues on the same line, as in the file.
    QStringList coreLogMessages() const;

private:
    QTemporaryDir m_dir;
    QByteArray m_savedTmpdir;
    bool m_hadTmpdir;
};

// The crypto log lives at a fixed place, /tmp/ZtEncodeLog/ZtCryptographic.log. A tap switches
// it on by creating the folder when it is absent, remembers where the file ended, and on
// destruction removes only what it created. Tests using it hold the ctest resource lock
// "crypto_log".
class CryptoLogTap
{
public:
    static constexpr const char *kFolder = "/tmp/ZtEncodeLog";
    static constexpr const char *kFile = "/tmp/ZtEncodeLog/ZtCryptographic.log";

    CryptoLogTap();
    ~CryptoLogTap();
    CryptoLogTap(const CryptoLogTap &) = delete;
    CryptoLogTap &operator=(const CryptoLogTap &) = delete;

    // The bytes appended since the tap was made.
    QByteArray appended() const;
    // The appended lines with their "yyyy-MM-dd hh:mm:ss [] - " prefix checked and cut off.
    QStringList appendedMessages() const;

private:
    bool m_createdFolder = false;
    bool m_createdFile = false;
    qint64 m_start = 0;
};
