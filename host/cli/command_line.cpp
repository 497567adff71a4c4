#include "command_line.h"

#include "console.h"
#include "driver_profile_setting.h"
#include "session/default_paths.h"


namespace zthost::cli {

namespace {
const QString kPlugin = QStringLiteral("plugin");
const QString kSkf = QStringLiteral("skf");
const QString kDriverProfile = QStringLiteral("driver-profile");
const QString kRoot = QStringLiteral("root");
const QString kHostLog = QStringLiteral("host-log");
const QString kVerbose = QStringLiteral("v");
const QString kHelp = QStringLiteral("help");
} // namespace

CommandLine::CommandLine(const QString &command, const QString &synopsis,
                         const QString &description)
    : m_command(command), m_synopsis(synopsis), m_description(description)
{
    // "-pin" would otherwise read as -p -i -n and fail on the first letter with a puzzling name.
    m_parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    m_parser.addOption({kPlugin,
                        QStringLiteral("The plug-in to load (default: %1).").arg(defaultPluginPath()),
                        QStringLiteral("PATH")});
    m_parser.addOption(
        {kSkf,
         QStringLiteral("The smart-key driver (default: %1).").arg(defaultSkfDriverPath()),
         QStringLiteral("PATH")});
    m_parser.addOption(
        {kDriverProfile,
         QStringLiteral("The smart-key driver's type widths: auto (detected), standard (4-byte "
                        "ULONG and BOOL) or wide (8-byte, as some vendors' headers declare them). "
                        "Default: $ZTHOST_DRIVER_PROFILE, else host/driver-profile in the "
                        "configuration file, else auto."),
         QStringLiteral("NAME")});
    m_parser.addOption({kRoot,
                        QStringLiteral("The software device root (default: $SOFTSKF_ROOT, else "
                                       "~/.local/share/softskf)."),
                        QStringLiteral("DIR")});
    m_parser.addOption({kHostLog,
                        QStringLiteral("Append the host's log to FILE (default: standard error, "
                                       "warnings and errors only)."),
                        QStringLiteral("FILE")});
    m_parser.addOption({{kVerbose, QStringLiteral("verbose")},
                        QStringLiteral("Debug lines too: the plug-in's trace and Qt's debug "
                                       "channel. They carry envelope material (an envelope's "
                                       "encrypted key and content, as hex): keep such logs "
                                       "private.")});
    m_parser.addOption({{QStringLiteral("h"), kHelp}, QStringLiteral("Show this help.")});
}

void CommandLine::addOption(const QCommandLineOption &option)
{
    m_parser.addOption(option);
}

CommandLine::Parse CommandLine::parse(const QStringList &arguments)
{
    if (!m_parser.parse(QStringList{QStringLiteral("zthost")} + arguments)) {
        usageError(m_parser.errorText());
        return Parse::UsageError;
    }
    if (m_parser.isSet(kHelp)) {
        printLine(helpText());
        return Parse::HelpShown;
    }
    QString error;
    const std::optional<DriverProfile> profile =
        resolveDriverProfile(optionalValue(kDriverProfile), &error);
    if (!profile) {
        usageError(error);
        return Parse::UsageError;
    }
    m_driverProfile = *profile;
    return Parse::Run;
}

ExitCode CommandLine::exitCodeOf(Parse parse)
{
    return parse == Parse::UsageError ? ExitCode::Usage : ExitCode::Success;
}

ExitCode CommandLine::usageError(const QString &message) const
{
    printMessage(QStringLiteral("zthost %1: %2").arg(m_command, message));
    printMessage(QStringLiteral("Try 'zthost %1 --help'.").arg(m_command));
    return ExitCode::Usage;
}

SessionOptions CommandLine::hostOptions() const
{
    SessionOptions options;
    options.pluginPath = m_parser.isSet(kPlugin) ? m_parser.value(kPlugin) : defaultPluginPath();
    options.skfDriverPath = m_parser.isSet(kSkf) ? m_parser.value(kSkf) : defaultSkfDriverPath();
    options.driverProfile = m_driverProfile;
    options.softKeyRoot = m_parser.value(kRoot);
    options.hostLogPath = m_parser.value(kHostLog);
    options.verbosity = m_parser.isSet(kVerbose) ? Verbosity::Debug : Verbosity::Normal;
    return options;
}

QString CommandLine::helpText() const
{
    // Qt's own help starts with a usage line of its making; ours names the command instead.
    QString options = m_parser.helpText();
    const int optionsStart = options.indexOf(QLatin1String("Options:"));
    if (optionsStart > 0)
        options = options.mid(optionsStart);
    QString text = QStringLiteral("Usage: zthost %1 %2\n\n%3\n\n%4")
                       .arg(m_command, m_synopsis, m_description, options.trimmed());
    if (!m_notes.isEmpty())
        text += QStringLiteral("\n\n") + m_notes;
    return text;
}

} // namespace zthost::cli
