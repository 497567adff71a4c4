#pragma once

#include <QList>
#include <QString>

#include <functional>
#include <optional>

namespace zthost::cli {

// Where a setting's effective value came from, strongest first.
enum class SettingSource { Option, Environment, File, Default };

// One setting the command line resolves from, in order: its option, its environment variable,
// its key in the configuration file, its default. A new setting is one row in settingTable().
struct SettingRow
{
    QString name;        // as `zthost config` shows it, e.g. "plugin"
    QString option;      // the long option without dashes ("plugin"); empty: none
    QString environment; // e.g. "ZTHOST_PLUGIN"; empty: none
    QString configKey;   // a ConfigKey; empty: not in the file
    QString valueName;   // PATH, DIR, NAME... for the help
    QString description; // one sentence for the help, without the default
    // The default value; called only when no other source gives one. Empty answers "none".
    std::function<QString()> defaultValue;
    // How the help and the man page state the default, when the value alone is not what a
    // reader needs (e.g. "the first device the driver lists").
    QString defaultDescription;
    // Whether every command takes the option (global), or only the commands that add it.
    bool global = true;
};

// Every setting, in the order `zthost config` lists them.
const QList<SettingRow> &settingTable();
// The row named `name`, or whose option or config key is `name`; null for none.
const SettingRow *findSetting(const QString &name);

struct SettingValue
{
    QString value;
    SettingSource source = SettingSource::Default;
    // "option --plugin", "environment ZTHOST_PLUGIN", "file /home/u/.config/zthost/zthost.conf
    // (host/plugin)", "default".
    QString origin;
};

// Resolves settings for one run of the command. `optionValue` answers an option's value when it
// was given on the command line. The configuration file is `configurationPath` when not empty
// (--config), else configurationFilePath(); it is read once, when the resolver is made, and a
// file that does not exist gives nothing.
class SettingResolver
{
public:
    using OptionLookup = std::function<std::optional<QString>(const QString &option)>;

    SettingResolver(OptionLookup optionValue, const QString &configurationPath);

    SettingValue resolve(const SettingRow &row) const;
    // By row name; an unknown name answers an empty default.
    SettingValue resolve(const QString &name) const;
    const QString &configurationPath() const { return m_configurationPath; }
    // Whether the configuration file could be read: false with `error` set when it exists but
    // is unreadable or not valid INI.
    bool fileReadable(QString *error) const;

private:
    OptionLookup m_optionValue;
    QString m_configurationPath;
    QString m_fileError;
    QList<std::pair<QString, QString>> m_fileValues; // config key, value
};

QString sourceName(SettingSource source);

} // namespace zthost::cli
