#include "settings.h"

#include "configuration_file.h"

#include "bridge/bridge_options.h"

#include "key/driver_profile.h"

#include "session/default_paths.h"

#include <softskf/provision.h>

#include <QFile>
#include <QFileInfo>
#include <QSettings>

namespace zthost::cli {

const QList<SettingRow> &settingTable()
{
    static const QList<SettingRow> table = {
        {QStringLiteral("plugin"), QStringLiteral("plugin"), QStringLiteral("ZTHOST_PLUGIN"),
         ConfigKey::kPlugin, QStringLiteral("PATH"), QStringLiteral("The plug-in to load."),
         [] { return defaultPluginPath(); }, QString()},
        {QStringLiteral("skf"), QStringLiteral("skf"), QStringLiteral("ZTHOST_SKF"), ConfigKey::kSkf,
         QStringLiteral("PATH"), QStringLiteral("The smart-key driver."),
         [] { return defaultSkfDriverPath(); }, QString()},
        {QStringLiteral("device"), QStringLiteral("device"), QStringLiteral("ZTHOST_DEVICE"),
         ConfigKey::kDevice, QStringLiteral("NAME"),
         QStringLiteral("The key device to use; the driver's other devices are not shown to the "
                        "plug-in."),
         [] { return QString(); }, QStringLiteral("the first device the driver lists")},
        // Checked where a command line is parsed (CommandLine::parse), so that a value that is no
        // profile is a usage error whichever place it came from.
        {QStringLiteral("driver-profile"), QStringLiteral("driver-profile"),
         QStringLiteral("ZTHOST_DRIVER_PROFILE"), ConfigKey::kDriverProfile, QStringLiteral("NAME"),
         QStringLiteral("The smart-key driver's type widths: auto (detected), standard (4-byte "
                        "ULONG and BOOL) or wide (8-byte, as some vendors' headers declare them)."),
         [] { return driverProfileName(DriverProfile::Auto); }, QString()},
        {QStringLiteral("root"), QStringLiteral("root"), QStringLiteral("SOFTSKF_ROOT"),
         ConfigKey::kRoot, QStringLiteral("DIR"), QStringLiteral("The software device root."),
         [] { return QFile::decodeName(QByteArray::fromStdString(softskf::rootFromEnvironment())); },
         QStringLiteral("${XDG_DATA_HOME:-~/.local/share}/softskf")},
        // The bridge service's: `zthost serve` without --service takes --port or any free port.
        {QStringLiteral("port"), QStringLiteral("port"), QString(), ConfigKey::kBridgePort,
         QStringLiteral("N"), QStringLiteral("The bridge service's port (zthost serve --service)."),
         [] { return QString::number(bridge::kDefaultServicePort); }, QString(), false},
        // No option: `zthost origins` changes the list in the file.
        {QStringLiteral("origins"), QString(), QString(), ConfigKey::kBridgeOrigins,
         QStringLiteral("ORIGINS"),
         QStringLiteral("The sites whose pages the bridge service lets in (zthost origins)."),
         [] { return QString(); }, QStringLiteral("none"), false},
    };
    return table;
}

const SettingRow *findSetting(const QString &name)
{
    for (const SettingRow &row : settingTable()) {
        if (row.name == name || row.option == name || row.configKey == name)
            return &row;
    }
    return nullptr;
}

QString sourceName(SettingSource source)
{
    switch (source) {
    case SettingSource::Option:
        return QStringLiteral("option");
    case SettingSource::Environment:
        return QStringLiteral("environment");
    case SettingSource::File:
        return QStringLiteral("file");
    case SettingSource::Default:
        return QStringLiteral("default");
    }
    return QString();
}

SettingResolver::SettingResolver(OptionLookup optionValue, const QString &configurationPath)
    : m_optionValue(std::move(optionValue)),
      m_configurationPath(configurationPath.isEmpty() ? configurationFilePath() : configurationPath)
{
    if (!QFileInfo::exists(m_configurationPath))
        return;
    if (!QFileInfo(m_configurationPath).isReadable()) {
        m_fileError = QStringLiteral("cannot read configuration file %1").arg(m_configurationPath);
        return;
    }
    const QSettings file(m_configurationPath, QSettings::IniFormat);
    if (file.status() != QSettings::NoError) {
        m_fileError = QStringLiteral("configuration file %1 is not valid INI")
                          .arg(m_configurationPath);
        return;
    }
    for (const SettingRow &row : settingTable()) {
        if (row.configKey.isEmpty() || !file.contains(row.configKey))
            continue;
        // QSettings reads a value with commas as a list.
        const QVariant value = file.value(row.configKey);
        const QString text = value.type() == QVariant::StringList
                                 ? value.toStringList().join(QLatin1Char(','))
                                 : value.toString();
        m_fileValues.append({row.configKey, text});
    }
}

bool SettingResolver::fileReadable(QString *error) const
{
    if (m_fileError.isEmpty())
        return true;
    *error = m_fileError;
    return false;
}

SettingValue SettingResolver::resolve(const SettingRow &row) const
{
    SettingValue setting;
    if (!row.option.isEmpty()) {
        if (const std::optional<QString> given = m_optionValue(row.option)) {
            setting.value = *given;
            setting.source = SettingSource::Option;
            setting.origin = QStringLiteral("option --%1").arg(row.option);
            return setting;
        }
    }
    // An empty variable counts as unset, as it does for SOFTSKF_ROOT in the driver.
    if (!row.environment.isEmpty() && !qEnvironmentVariableIsEmpty(qPrintable(row.environment))) {
        setting.value = qEnvironmentVariable(qPrintable(row.environment));
        setting.source = SettingSource::Environment;
        setting.origin = QStringLiteral("environment %1").arg(row.environment);
        return setting;
    }
    for (const auto &entry : m_fileValues) {
        if (entry.first == row.configKey) {
            setting.value = entry.second;
            setting.source = SettingSource::File;
            setting.origin = QStringLiteral("file %1 (%2)").arg(m_configurationPath, row.configKey);
            return setting;
        }
    }
    setting.value = row.defaultValue ? row.defaultValue() : QString();
    setting.source = SettingSource::Default;
    setting.origin = QStringLiteral("default");
    return setting;
}

SettingValue SettingResolver::resolve(const QString &name) const
{
    const SettingRow *row = findSetting(name);
    return row ? resolve(*row) : SettingValue{};
}

} // namespace zthost::cli
