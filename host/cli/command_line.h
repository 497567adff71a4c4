#pragma once

#include "session/session_options.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <optional>

namespace zthost::cli {

// The command's exit status: 0 when everything held, 1 when an operation failed (a method
// answered false, a file could not be read, a device could not be made), 2 when the command
// line itself was wrong (unknown command or option, missing required option, unknown method).
enum class ExitCode : int { Success = 0, Failure = 1, Usage = 2 };

// The command line of one command: the options every command shares (--plugin, --skf,
// --driver-profile, --root, --host-log, -v, --help) plus its own.
class CommandLine
{
public:
    // `synopsis` follows "zthost <command>" in the usage line, e.g. "--name NAME --pin PIN".
    CommandLine(const QString &command, const QString &synopsis, const QString &description);

    void addOption(const QCommandLineOption &option);
    // Free text after the options in --help, e.g. notes on formats.
    void setNotes(const QString &notes) { m_notes = notes; }

    enum class Parse { Run, HelpShown, UsageError };
    // `arguments` are those after the command name. --help prints the help on standard output;
    // an unknown option or a missing value prints the reason and a hint on standard error, and
    // so does a driver profile that is not one (driver_profile_setting.h).
    Parse parse(const QStringList &arguments);

    // The exit code for a Parse that is not Run.
    static ExitCode exitCodeOf(Parse parse);

    bool isSet(const QString &name) const { return m_parser.isSet(name); }
    QString value(const QString &name) const { return m_parser.value(name); }
    QStringList positionalArguments() const { return m_parser.positionalArguments(); }
    // The option's value when it was given at all (an empty value counts as given).
    std::optional<QString> optionalValue(const QString &name) const
    {
        return m_parser.isSet(name) ? std::optional<QString>(m_parser.value(name)) : std::nullopt;
    }

    // Prints "zthost <command>: <message>" and the --help hint on standard error.
    ExitCode usageError(const QString &message) const;

    SessionOptions hostOptions() const;
    QString helpText() const;

private:
    QString m_command;
    QString m_synopsis;
    QString m_description;
    QString m_notes;
    QCommandLineParser m_parser;
    DriverProfile m_driverProfile = DriverProfile::Auto;
};

} // namespace zthost::cli
