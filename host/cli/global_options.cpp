#include "global_options.h"

#include "settings.h"

namespace zthost::cli {

const QList<QCommandLineOption> &globalOptions()
{
    static const QList<QCommandLineOption> options = [] {
        QList<QCommandLineOption> list;
        for (const SettingRow &row : settingTable()) {
            if (!row.global)
                continue;
            const QString fallback = row.defaultDescription.isEmpty()
                                         ? (row.defaultValue ? row.defaultValue() : QString())
                                         : row.defaultDescription;
            QString help = row.description;
            help += QStringLiteral(" Else $%1, else %2 in the configuration file, else %3.")
                        .arg(row.environment, row.configKey, fallback);
            list << QCommandLineOption(row.option, help, row.valueName);
        }
        list << QCommandLineOption(QStringLiteral("config"),
                                   QStringLiteral("The configuration file (default: "
                                                  "${XDG_CONFIG_HOME:-~/.config}/zthost/"
                                                  "zthost.conf); 'zthost config' shows what it "
                                                  "sets."),
                                   QStringLiteral("FILE"));
        list << QCommandLineOption(QStringLiteral("host-log"),
                                   QStringLiteral("Append the host's log to FILE (default: "
                                                  "standard error, warnings and errors only)."),
                                   QStringLiteral("FILE"));
        list << QCommandLineOption({QStringLiteral("v"), QStringLiteral("verbose")},
                                   QStringLiteral("Debug lines too: the plug-in's trace and Qt's "
                                                  "debug channel. They carry envelope material "
                                                  "(an envelope's encrypted key and content, as "
                                                  "hex): keep such logs private."));
        return list;
    }();
    return options;
}

namespace {
// The global option `argument` names ("--root", "-root", "--root=D"), or null.
const QCommandLineOption *globalNamed(const QString &argument, bool *valueAttached)
{
    if (!argument.startsWith(QLatin1Char('-')) || argument == QLatin1String("--"))
        return nullptr;
    QString name = argument.mid(argument.startsWith(QLatin1String("--")) ? 2 : 1);
    const int equals = name.indexOf(QLatin1Char('='));
    *valueAttached = equals >= 0;
    if (equals >= 0)
        name.truncate(equals);
    for (const QCommandLineOption &option : globalOptions()) {
        if (option.names().contains(name))
            return &option;
    }
    return nullptr;
}
} // namespace

bool splitLeadingGlobals(const QStringList &arguments, QStringList *globals, QStringList *rest,
                         QString *error)
{
    int i = 0;
    for (; i < arguments.size(); ++i) {
        bool valueAttached = false;
        const QCommandLineOption *option = globalNamed(arguments.at(i), &valueAttached);
        if (!option)
            break;
        *globals << arguments.at(i);
        if (option->valueName().isEmpty() || valueAttached)
            continue;
        if (i + 1 >= arguments.size()) {
            *error = QStringLiteral("missing value after %1").arg(arguments.at(i));
            return false;
        }
        *globals << arguments.at(++i);
    }
    *rest = arguments.mid(i);
    return true;
}

} // namespace zthost::cli
