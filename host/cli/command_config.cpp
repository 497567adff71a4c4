// `zthost config`: every setting's effective value and where it came from, and changing the
// configuration file.
#include "commands.h"

#include "command_line.h"
#include "configuration_file.h"
#include "console.h"
#include "session_steps.h"
#include "settings.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace zthost::cli {

namespace {

// The row a user names by setting name, option or configuration key; null when none is.
const SettingRow *fileSetting(const QString &name)
{
    const SettingRow *row = findSetting(name);
    return row && !row->configKey.isEmpty() ? row : nullptr;
}

QString knownKeys()
{
    QStringList keys;
    for (const SettingRow &row : settingTable()) {
        if (!row.configKey.isEmpty())
            keys << row.configKey;
    }
    return keys.join(QStringLiteral(", "));
}

ExitCode show(const CommandLine &line)
{
    const SettingResolver settings = line.settings();
    QString error;
    if (!settings.fileReadable(&error))
        return failed(error);
    QList<QStringList> rows;
    rows << QStringList{QStringLiteral("setting"), QStringLiteral("value"), QStringLiteral("from")};
    for (const SettingRow &row : settingTable()) {
        const SettingValue value = settings.resolve(row);
        rows << QStringList{row.name, value.value.isEmpty() ? QStringLiteral("(none)") : value.value,
                            value.origin};
    }
    int nameWidth = 0;
    int valueWidth = 0;
    for (const QStringList &row : qAsConst(rows)) {
        nameWidth = qMax(nameWidth, row.at(0).size());
        valueWidth = qMax(valueWidth, row.at(1).size());
    }
    for (const QStringList &row : qAsConst(rows))
        printLine(QStringLiteral("%1  %2  %3").arg(row.at(0), -nameWidth).arg(row.at(1), -valueWidth).arg(row.at(2)));
    printLine(QString());
    printLine(QStringLiteral("configuration file %1%2")
                  .arg(settings.configurationPath(),
                       QFileInfo::exists(settings.configurationPath()) ? QString()
                                                                       : QStringLiteral(" (none yet)")));
    return ExitCode::Success;
}

ExitCode change(const CommandLine &line, const QStringList &words)
{
    const bool set = words.first() == QLatin1String("set");
    if (words.size() != (set ? 3 : 2))
        return line.usageError(set ? QStringLiteral("usage: zthost config set KEY VALUE")
                                   : QStringLiteral("usage: zthost config unset KEY"));
    const SettingRow *row = fileSetting(words.at(1));
    if (!row)
        return line.usageError(QStringLiteral("no setting \"%1\"; the file holds %2")
                                   .arg(words.at(1), knownKeys()));
    const QString path = line.settings().configurationPath();
    if (!QDir().mkpath(QFileInfo(path).path()))
        return failed(QStringLiteral("cannot make the folder of %1").arg(path));
    QSettings file(path, QSettings::IniFormat);
    if (set)
        file.setValue(row->configKey, words.at(2));
    else
        file.remove(row->configKey);
    file.sync();
    if (file.status() != QSettings::NoError)
        return failed(QStringLiteral("cannot write configuration file %1").arg(path));
    return ExitCode::Success;
}

} // namespace

ExitCode runConfig(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("config"),
                     QStringLiteral("[set KEY VALUE | unset KEY] [options]"),
                     QStringLiteral("Shows every setting's effective value and where it came "
                                    "from: an option, the environment, the configuration\nfile "
                                    "(with its path and key), or the default. 'set' and 'unset' "
                                    "change the configuration file;\nKEY is a setting's name or "
                                    "its key in the file (device or host/device)."));
    for (const SettingRow &row : settingTable()) {
        if (!row.global && !row.option.isEmpty())
            line.addSettingOption(row.name);
    }
    line.setNotes(QStringLiteral("An option overrides the environment, which overrides the "
                                 "file, which overrides the default.\nThe file is INI: keys "
                                 "under [host] and [bridge], e.g.\n  [host]\n  device=alice\n"
                                 "Keys: %1.")
                      .arg(knownKeys()));
    const CommandLine::Parse parsed = line.parse(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    const QStringList words = line.positionalArguments();
    if (words.isEmpty())
        return show(line);
    if (words.first() == QLatin1String("set") || words.first() == QLatin1String("unset"))
        return change(line, words);
    return line.usageError(QStringLiteral("unknown action \"%1\"; give set, unset or nothing")
                               .arg(words.first()));
}

} // namespace zthost::cli
