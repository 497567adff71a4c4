#pragma once

#include "settings.h"

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

// The command line of one command: the options every command shares (global_options.h, and
// --help) plus its own. Settings (settings.h) resolve from these options, the environment, the
// configuration file and their defaults.
class CommandLine
{
public:
    // `synopsis` follows "zthost <command>" in the usage line, e.g. "--name NAME --pin PIN".
    CommandLine(const QString &command, const QString &synopsis, const QString &description);

    void addOption(const QCommandLineOption &option);
    // The option of a setting row that is not global (settings.h), e.g. serve's "port".
    void addSettingOption(const QString &settingName);
    // Options only before the first positional argument; every word after it is positional,
    // dashes and "--" included (for commands whose arguments are words of their own).
    void setOptionsBeforeArgumentsOnly()
    {
        m_parser.setOptionsAfterPositionalArgumentsMode(
            QCommandLineParser::ParseAsPositionalArguments);
    }
    // Free text after the options in --help, e.g. notes on formats.
    void setNotes(const QString &notes) { m_notes = notes; }

    enum class Parse { Run, HelpShown, UsageError };
    // `arguments` are those after the command name. --help prints the help on standard output;
    // an unknown option or a missing value prints the reason and a hint on standard error, and
    // so does a driver profile that is not one, from whichever place it came (except for
    // `zthost config`, which must still show and change a wrong value).
    Parse parse(const QStringList &arguments);
    // parse() for a command that takes options only: a positional argument is a usage error
    // naming the first one.
    Parse parseWithoutArguments(const QStringList &arguments);

    // The exit code for a Parse that is not Run.
    static ExitCode exitCodeOf(Parse parse);

    bool isSet(const QString &name) const { return m_parser.isSet(name); }
    QString value(const QString &name) const { return m_parser.value(name); }
    // Every value of an option given more than once, in order.
    QStringList values(const QString &name) const { return m_parser.values(name); }
    QStringList positionalArguments() const { return m_parser.positionalArguments(); }
    // The option's value when it was given at all (an empty value counts as given).
    std::optional<QString> optionalValue(const QString &name) const
    {
        return m_parser.isSet(name) ? std::optional<QString>(m_parser.value(name)) : std::nullopt;
    }

    // Prints "zthost <command>: <message>" and the --help hint on standard error.
    ExitCode usageError(const QString &message) const;

    // Every setting as this run resolves it (option, environment, file, default).
    SettingResolver settings() const;
    SettingValue setting(const QString &name) const { return settings().resolve(name); }
    // The session's options from the settings, with the driver profile parse() checked. Fails,
    // with `error` set, only when the configuration file exists and cannot be read.
    bool hostOptions(SessionOptions *options, QString *error) const;
    // hostOptions(), printing the error and answering std::nullopt on failure.
    std::optional<SessionOptions> hostOptions() const;
    QString helpText() const;

private:
    // The driver-profile setting as a profile; empty with `error` naming where the value that is
    // none came from: "--driver-profile \"narrow\" is not one of auto, standard, wide", or the
    // same naming ZTHOST_DRIVER_PROFILE or "host/driver-profile in /home/u/.config/zthost/...".
    std::optional<DriverProfile> resolveDriverProfile(QString *error) const;

    QString m_command;
    QString m_synopsis;
    QString m_description;
    QString m_notes;
    QCommandLineParser m_parser;
    DriverProfile m_driverProfile = DriverProfile::Auto;
};

} // namespace zthost::cli
