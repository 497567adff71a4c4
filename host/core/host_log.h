#pragma once

#include <QFile>
#include <QString>

#include <memory>

namespace zthost {

enum class LogLevel { Debug, Warning, Error };

// The host's own log: the plug-in's logDebug/logError lines and the host components' failures.
// Lines below the threshold are dropped; the rest go to standard error, or to a file once one is
// set. The log never formats secrets itself: callers hand it finished text and must keep PINs
// out of it.
class HostLog
{
public:
    enum class Destination { StandardError, File };

    // Standard error, warnings and errors only.
    HostLog();
    ~HostLog();
    HostLog(const HostLog &) = delete;
    HostLog &operator=(const HostLog &) = delete;

    LogLevel threshold() const { return m_threshold; }
    // LogLevel::Debug lets the plug-in's trace through as well.
    void setThreshold(LogLevel level) { m_threshold = level; }

    // Appends to `path` from now on (the file is created when absent, never truncated). On failure
    // the log stays where it was and `error` names the file and the reason.
    bool setFile(const QString &path, QString *error = nullptr);
    // Back to standard error; an open file is closed.
    void useStandardError();
    Destination destination() const;

    // A longer message is cut there, with its length said after it.
    static constexpr int kMaxMessageChars = 4096;

    // `message` is escaped (see escapedForLog) and cut to kMaxMessageChars: one line each.
    void write(LogLevel level, const QString &message);
    void debug(const QString &message) { write(LogLevel::Debug, message); }
    void warning(const QString &message) { write(LogLevel::Warning, message); }
    void error(const QString &message) { write(LogLevel::Error, message); }

    // "debug", "warning", "error".
    static const char *levelName(LogLevel level);

private:
    LogLevel m_threshold = LogLevel::Warning;
    std::unique_ptr<QFile> m_file;
};

} // namespace zthost
