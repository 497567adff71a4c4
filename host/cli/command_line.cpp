#include "command_line.h"

#include "configuration_file.h"
#include "console.h"
#include "global_options.h"

namespace zthost::cli {

namespace {
const QString kConfig = QStringLiteral("config");
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
    m_parser.addOptions(globalOptions());
    m_parser.addOption({{QStringLiteral("h"), kHelp}, QStringLiteral("Show this help.")});
}

void CommandLine::addOption(const QCommandLineOption &option)
{
    m_parser.addOption(option);
}

void CommandLine::addSettingOption(const QString &settingName)
{
    const SettingRow *row = findSetting(settingName);
    Q_ASSERT(row && !row->global);
    const QString fallback = row->defaultDescription.isEmpty() ? row->defaultValue()
                                                               : row->defaultDescription;
    m_parser.addOption({row->option,
                        QStringLiteral("%1 Else %2 in the configuration file, else %3.")
                            .arg(row->description, row->configKey, fallback),
                        row->valueName});
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
    // `zthost config` shows and changes a value that is no profile; every other command stops.
    if (m_command == QLatin1String("config"))
        return Parse::Run;
    QString error;
    const std::optional<DriverProfile> profile = resolveDriverProfile(&error);
    if (!profile) {
        usageError(error);
        return Parse::UsageError;
    }
    m_driverProfile = *profile;
    return Parse::Run;
}

CommandLine::Parse CommandLine::parseWithoutArguments(const QStringList &arguments)
{
    const Parse parsed = parse(arguments);
    if (parsed != Parse::Run || m_parser.positionalArguments().isEmpty())
        return parsed;
    usageError(QStringLiteral("unexpected argument \"%1\"")
                   .arg(m_parser.positionalArguments().first()));
    return Parse::UsageError;
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

SettingResolver CommandLine::settings() const
{
    return SettingResolver([this](const QString &option) { return optionalValue(option); },
                           m_parser.value(kConfig));
}

std::optional<DriverProfile> CommandLine::resolveDriverProfile(QString *error) const
{
    const SettingResolver resolver = settings();
    const SettingValue setting = resolver.resolve(QStringLiteral("driver-profile"));
    const std::optional<DriverProfile> profile = parseDriverProfile(setting.value);
    if (profile)
        return profile;
    QString where;
    switch (setting.source) {
    case SettingSource::Option:
        where = QStringLiteral("--driver-profile");
        break;
    case SettingSource::Environment:
        where = QStringLiteral("ZTHOST_DRIVER_PROFILE");
        break;
    case SettingSource::File:
        where = QStringLiteral("%1 in %2").arg(ConfigKey::kDriverProfile,
                                               resolver.configurationPath());
        break;
    case SettingSource::Default:
        where = QStringLiteral("the default driver profile");
        break;
    }
    *error = QStringLiteral("%1 \"%2\" is not one of %3")
                 .arg(where, setting.value, driverProfileNames().join(QStringLiteral(", ")));
    return std::nullopt;
}

bool CommandLine::hostOptions(SessionOptions *options, QString *error) const
{
    const SettingResolver resolver = settings();
    if (!resolver.fileReadable(error))
        return false;
    options->pluginPath = resolver.resolve(QStringLiteral("plugin")).value;
    options->skfDriverPath = resolver.resolve(QStringLiteral("skf")).value;
    options->deviceName = resolver.resolve(QStringLiteral("device")).value;
    options->driverProfile = m_driverProfile;
    // SOFTSKF_ROOT, when it decides, is read by the software device itself.
    const SettingValue root = resolver.resolve(QStringLiteral("root"));
    options->softKeyRoot = root.source == SettingSource::Option || root.source == SettingSource::File
                               ? root.value
                               : QString();
    options->hostLogPath = m_parser.value(kHostLog);
    options->verbosity = m_parser.isSet(kVerbose) ? Verbosity::Debug : Verbosity::Normal;
    return true;
}

std::optional<SessionOptions> CommandLine::hostOptions() const
{
    SessionOptions options;
    QString error;
    if (hostOptions(&options, &error))
        return options;
    printError(error);
    return std::nullopt;
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
