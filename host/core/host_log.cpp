#include "core/host_log.h"

#include "core/log_text.h"

#include <QDateTime>

#include <cstdio>

namespace zthost {

HostLog::HostLog() = default;
HostLog::~HostLog() = default;

bool HostLog::setFile(const QString &path, QString *error)
{
    auto file = std::make_unique<QFile>(path);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        if (error)
            *error = QStringLiteral("cannot open host log %1: %2").arg(path, file->errorString());
        return false;
    }
    m_file = std::move(file);
    return true;
}

void HostLog::useStandardError()
{
    m_file.reset();
}

HostLog::Destination HostLog::destination() const
{
    return m_file ? Destination::File : Destination::StandardError;
}

const char *HostLog::levelName(LogLevel level)
{
    switch (level) {
    case LogLevel::Debug:
        return "debug";
    case LogLevel::Warning:
        return "warning";
    case LogLevel::Error:
        return "error";
    }
    return "error";
}

void HostLog::write(LogLevel level, const QString &message)
{
    if (level < m_threshold)
        return;
    // Every line, whoever wrote it, is one record and carries no terminal controls: parts of
    // many messages come from pages, devices and files the host does not control.
    const QByteArray line = QDateTime::currentDateTime().toString(Qt::ISODateWithMs).toUtf8() + " ["
                            + levelName(level) + "] "
                            + cappedForLog(message, kMaxMessageChars).toUtf8() + '\n';
    if (m_file) {
        // Flushed per line so that a host that crashes right after a failure still shows it.
        m_file->write(line);
        m_file->flush();
        return;
    }
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
}

} // namespace zthost
