#include "serve_process.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrlQuery>

#include <csignal>

namespace {

constexpr int kToolTimeoutMs = 30000;
constexpr int kStartTimeoutMs = 15000;
// The crypto log's fixed folder; it is written only while the folder exists.
const QString kCryptoLogFolder = QStringLiteral("/tmp/ZtEncodeLog");
const QString kCryptoLogFile = QStringLiteral("/tmp/ZtEncodeLog/ZtCryptographic.log");

QByteArray readAll(const QString &name, qint64 from = 0)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly) || !file.seek(qMin(from, file.size())))
        return QByteArray();
    return file.readAll();
}

} // namespace

qint64 residentBytes(qint64 pid)
{
    for (const QByteArray &line : readAll(QStringLiteral("/proc/%1/status").arg(pid)).split('\n')) {
        if (line.startsWith("VmRSS:")) // "VmRSS:     12345 kB"
            return line.mid(6).trimmed().split(' ').value(0).toLongLong() * 1024;
    }
    return -1;
}

ServeProcess::ServeProcess()
{
    QDir(m_dir.path()).mkpath(QStringLiteral("root"));
    // The core log is on while $TMPDIR/ardlow exists.
    QDir(m_dir.path()).mkpath(QStringLiteral("tmp/ardlow"));
    if (!QFileInfo::exists(kCryptoLogFolder))
        m_createdCryptoLog = QDir().mkpath(kCryptoLogFolder);
    m_cryptoLogStart = QFileInfo(kCryptoLogFile).size();
}

ServeProcess::~ServeProcess()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->kill();
        m_process->waitForFinished(5000);
    }
    if (m_createdCryptoLog)
        QDir(kCryptoLogFolder).removeRecursively();
}

QProcessEnvironment ServeProcess::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TMPDIR"), m_dir.filePath(QStringLiteral("tmp")));
    environment.insert(QStringLiteral("SOFTSKF_ROOT"), m_dir.filePath(QStringLiteral("root")));
    environment.remove(QStringLiteral("ZTHOST_PIN"));
    // No settings of the user's: a configuration folder of the test's own, no ZTHOST_* choices.
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_dir.filePath(QStringLiteral("config")));
    for (const char *variable : {"ZTHOST_PLUGIN", "ZTHOST_SKF", "ZTHOST_DEVICE"})
        environment.remove(QLatin1String(variable));
    return environment;
}

ServeProcess::Run ServeProcess::run(const QStringList &arguments)
{
    QProcess tool;
    tool.setProcessEnvironment(environment());
    tool.start(QStringLiteral(ZTHOST_PATH), arguments);
    Run result;
    if (tool.waitForFinished(kToolTimeoutMs) && tool.exitStatus() == QProcess::NormalExit)
        result.exitCode = tool.exitCode();
    result.standardOutput = tool.readAllStandardOutput();
    result.standardError = tool.readAllStandardError();
    return result;
}

QByteArray ServeProcess::hostLog() const
{
    return readAll(m_dir.filePath(QStringLiteral("host.log")));
}

bool ServeProcess::runTool(const QStringList &arguments, QByteArray *output, QString *failure)
{
    QProcess tool;
    tool.setProcessEnvironment(environment());
    tool.start(QStringLiteral(ZTHOST_PATH),
               arguments + QStringList{QStringLiteral("--root"), m_dir.filePath(QStringLiteral("root"))});
    if (!tool.waitForFinished(kToolTimeoutMs) || tool.exitStatus() != QProcess::NormalExit
        || tool.exitCode() != 0) {
        *failure = QStringLiteral("zthost %1 failed: %2")
                       .arg(arguments.join(QLatin1Char(' ')),
                            QString::fromUtf8(tool.readAllStandardError()));
        return false;
    }
    *output = tool.readAllStandardOutput();
    return true;
}

bool ServeProcess::makeKey(const QString &pin, QString *failure)
{
    QByteArray output;
    return runTool({QStringLiteral("keygen"), QStringLiteral("--name"), QLatin1String(kDevice),
                    QStringLiteral("--pin"), pin, QStringLiteral("--admin-pin"),
                    QStringLiteral("serve-admin-7731")},
                   &output, failure);
}

bool ServeProcess::start(const QStringList &extra, QString *failure)
{
    m_process = std::make_unique<QProcess>();
    m_process->setProcessEnvironment(environment());
    m_process->start(QStringLiteral(ZTHOST_PATH),
                     QStringList{QStringLiteral("serve"), QStringLiteral("--root"),
                                 m_dir.filePath(QStringLiteral("root")), QStringLiteral("--host-log"),
                                 m_dir.filePath(QStringLiteral("host.log")), QStringLiteral("-v")}
                         + extra);
    if (!m_process->waitForStarted(kStartTimeoutMs)) {
        *failure = QStringLiteral("zthost serve did not start: %1").arg(m_process->errorString());
        return false;
    }
    while (!m_stdout.contains('\n')) {
        if (!m_process->waitForReadyRead(kStartTimeoutMs)) {
            m_stderr += m_process->readAllStandardError();
            *failure = QStringLiteral("zthost serve printed no address: %1").arg(QString::fromUtf8(m_stderr));
            return false;
        }
        m_stdout += m_process->readAllStandardOutput();
    }
    m_pageUrl = QUrl(QString::fromUtf8(m_stdout.left(m_stdout.indexOf('\n'))));
    return m_pageUrl.isValid();
}

QUrl ServeProcess::webSocketUrl() const
{
    QUrl url = m_pageUrl;
    url.setScheme(QStringLiteral("ws"));
    url.setPath(QStringLiteral("/bridge"));
    return url;
}

QString ServeProcess::origin() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_pageUrl.port());
}

bool ServeProcess::stop(int signalNumber)
{
    ::kill(pid_t(m_process->processId()), signalNumber);
    const bool finished = m_process->waitForFinished(kStartTimeoutMs);
    m_stdout += m_process->readAllStandardOutput();
    m_stderr += m_process->readAllStandardError();
    return finished;
}

QByteArray ServeProcess::allLogs() const
{
    return readAll(m_dir.filePath(QStringLiteral("host.log")))
           + readAll(m_dir.filePath(QStringLiteral("tmp/ardlow/penwick_core.log")))
           + readAll(kCryptoLogFile, m_cryptoLogStart) + m_stdout + m_stderr;
}
