#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>

#include <memory>

// Resident memory of a process, in bytes, from /proc/PID/status; -1 when it cannot be read.
qint64 residentBytes(qint64 pid);

// `zthost serve` as a user runs it, over a software key device in a private root, with the
// host log, the core log and Qt's debug channel on, so that tests can read every log.
class ServeProcess
{
public:
    static constexpr const char *kDevice = "bridge-device";

    ServeProcess();
    ~ServeProcess();

    bool isValid() const { return m_dir.isValid(); }
    QString path(const QString &name) const { return m_dir.filePath(name); }

    // Runs `zthost ARGUMENTS --root ROOT` to its end; false with the output in `failure`.
    bool runTool(const QStringList &arguments, QByteArray *output, QString *failure);
    // `zthost keygen`: the software key kDevice with `pin` and an admin PIN of its own.
    bool makeKey(const QString &pin, QString *failure);

    // Runs `zthost ARGUMENTS` (nothing added) to its end, whatever its exit code; -1 when it
    // did not finish.
    struct Run
    {
        int exitCode = -1;
        QByteArray standardOutput;
        QByteArray standardError;
    };
    Run run(const QStringList &arguments);

    // The process's own configuration file (XDG_CONFIG_HOME is a folder of its own).
    QString configurationFile() const { return path(QStringLiteral("config/zthost/zthost.conf")); }
    // The host log as it is now.
    QByteArray hostLog() const;

    // Starts `zthost serve` with `extra` arguments and reads the address it prints.
    bool start(const QStringList &extra, QString *failure);
    QUrl pageUrl() const { return m_pageUrl; }
    QUrl webSocketUrl() const;
    QString origin() const;
    QProcess &process() { return *m_process; }

    // Sends `signalNumber` and waits for the process to end; false when it does not in time.
    bool stop(int signalNumber);
    QByteArray standardOutput() const { return m_stdout; }
    QByteArray standardError() const { return m_stderr; }

    // Everything every log received: host log, core log, crypto log (what this run appended).
    QByteArray allLogs() const;

private:
    QProcessEnvironment environment() const;

    QTemporaryDir m_dir;
    std::unique_ptr<QProcess> m_process;
    QUrl m_pageUrl;
    QByteArray m_stdout;
    QByteArray m_stderr;
    bool m_createdCryptoLog = false;
    qint64 m_cryptoLogStart = 0;
};
