#include "commands.h"

#include "command_line.h"
#include "configuration_file.h"
#include "console.h"

#include "bridge/approved_origin.h"

namespace zthost::cli {

namespace {

const QString kDevelopmentMark = QStringLiteral("  (development: plain http on this machine)");

// The approved origins as the file holds them.
QStringList storedOrigins(QSettings &settings)
{
    return settings.value(ConfigKey::kBridgeOrigins).toStringList();
}

ExitCode saved(QSettings &settings, const QStringList &origins)
{
    if (origins.isEmpty())
        settings.remove(ConfigKey::kBridgeOrigins);
    else
        settings.setValue(ConfigKey::kBridgeOrigins, origins);
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        printMessage(QStringLiteral("zthost origins: cannot write %1").arg(settings.fileName()));
        return ExitCode::Failure;
    }
    return ExitCode::Success;
}

void runningServiceHint()
{
    printMessage(QStringLiteral("zthost origins: a running service takes the list as it is now "
                                "from the next page that connects."));
}

} // namespace

ExitCode runOrigins(const QStringList &arguments)
{
    CommandLine line(
        QStringLiteral("origins"), QStringLiteral("add ORIGIN | list | remove ORIGIN"),
        QStringLiteral("The sites whose pages the service (zthost serve --service) lets use the "
                       "key, kept as %1\nin %2.")
            .arg(ConfigKey::kBridgeOrigins, configurationFilePath()));
    line.setNotes(QStringLiteral(
        "An origin is scheme://host[:port] and nothing after it, e.g. https://site.example.\n"
        "Only https origins are taken, and for development http on 127.0.0.1, localhost or\n"
        "[::1]; list marks those. A page of an approved origin can use the key once the user\n"
        "has opened it with the PIN: approve only sites you trust with it."));
    const CommandLine::Parse parsed = line.parse(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    const QStringList words = line.positionalArguments();
    if (words.isEmpty())
        return line.usageError(QStringLiteral("say add ORIGIN, list or remove ORIGIN"));
    const QString &action = words.first();
    const bool takesOrigin = action == QLatin1String("add") || action == QLatin1String("remove");
    if (!takesOrigin && action != QLatin1String("list"))
        return line.usageError(QStringLiteral("unknown action \"%1\": say add, list or remove").arg(action));
    if (takesOrigin && words.size() != 2)
        return line.usageError(QStringLiteral("%1 takes one origin, %2 given").arg(action).arg(words.size() - 1));
    if (!takesOrigin && words.size() != 1)
        return line.usageError(QStringLiteral("list takes no argument"));

    const std::unique_ptr<QSettings> settings = openConfiguration(line.settings().configurationPath());
    QStringList origins = storedOrigins(*settings);

    if (action == QLatin1String("list")) {
        for (const QString &origin : qAsConst(origins)) {
            bridge::ApprovedOrigin approved;
            QString error;
            if (!bridge::ApprovedOrigin::parse(origin, &approved, &error))
                printLine(origin + QStringLiteral("  (refused by the service: ") + error + QLatin1Char(')'));
            else if (approved.kind == bridge::ApprovedOrigin::Kind::LoopbackHttp)
                printLine(approved.origin + kDevelopmentMark);
            else
                printLine(approved.origin);
        }
        if (origins.isEmpty())
            printMessage(QStringLiteral("zthost origins: no site is approved; approve one with "
                                        "zthost origins add ORIGIN"));
        return ExitCode::Success;
    }

    // An entry the service refuses (the file edited by hand) can still be removed as it is.
    if (action == QLatin1String("remove") && origins.contains(words.at(1))) {
        origins.removeAll(words.at(1));
        const ExitCode code = saved(*settings, origins);
        if (code == ExitCode::Success)
            printLine(QStringLiteral("removed: %1").arg(words.at(1)));
        return code;
    }
    bridge::ApprovedOrigin approved;
    QString error;
    if (!bridge::ApprovedOrigin::parse(words.at(1), &approved, &error))
        return line.usageError(error);

    if (action == QLatin1String("add")) {
        if (origins.contains(approved.origin)) {
            printLine(QStringLiteral("already approved: %1").arg(approved.origin));
            return ExitCode::Success;
        }
        origins << approved.origin;
        const ExitCode code = saved(*settings, origins);
        if (code != ExitCode::Success)
            return code;
        printLine(QStringLiteral("approved: %1%2")
                      .arg(approved.origin,
                           approved.kind == bridge::ApprovedOrigin::Kind::LoopbackHttp
                               ? kDevelopmentMark
                               : QString()));
        runningServiceHint();
        return ExitCode::Success;
    }

    if (!origins.removeAll(approved.origin)) {
        printMessage(QStringLiteral("zthost origins: %1 is not approved").arg(approved.origin));
        return ExitCode::Failure;
    }
    const ExitCode code = saved(*settings, origins);
    if (code != ExitCode::Success)
        return code;
    printLine(QStringLiteral("removed: %1").arg(approved.origin));
    runningServiceHint();
    return ExitCode::Success;
}

} // namespace zthost::cli
