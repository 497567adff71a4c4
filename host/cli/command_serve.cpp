#include "commands.h"

#include "approved_origins_file.h"
#include "command_line.h"
#include "configuration_file.h"
#include "console.h"
#include "device_choice.h"
#include "session_steps.h"

#include "bridge/approved_origin.h"
#include "bridge/bridge_options.h"
#include "bridge/channel_warnings.h"
#include "bridge/default_web_root.h"
#include "bridge/termination_signals.h"
#include "bridge/web_bridge.h"

#include <QCoreApplication>
#include <QHostAddress>

#include <csignal>
#include <optional>

namespace zthost::cli {

namespace {
const QString kPort = QStringLiteral("port");
const QString kListen = QStringLiteral("listen");
const QString kAllowOrigin = QStringLiteral("allow-origin");
const QString kMaxClients = QStringLiteral("max-clients");
const QString kMaxMessage = QStringLiteral("max-message");
const QString kWeb = QStringLiteral("web");
const QString kService = QStringLiteral("service");
const QString kOrigins = QStringLiteral("origins");

bool parseBounded(const QString &text, qint64 low, qint64 high, qint64 *value)
{
    bool ok = false;
    const qint64 parsed = text.trimmed().toLongLong(&ok, 10);
    if (!ok || parsed < low || parsed > high)
        return false;
    *value = parsed;
    return true;
}

// The approved origins as the configuration file holds them; false with `error` naming the
// file and the entry when one is no origin the service can approve.
bool readApprovedOrigins(const CommandLine &line, QStringList *origins, QString *error)
{
    origins->clear();
    const SettingValue stored = line.setting(kOrigins);
    if (stored.source == SettingSource::Default)
        return true;
    for (const QString &origin : stored.value.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bridge::ApprovedOrigin approved;
        QString problem;
        if (!bridge::ApprovedOrigin::parse(origin.trimmed(), &approved, &problem)) {
            *error = QStringLiteral("%1 in %2: %3 (zthost origins remove it)")
                         .arg(ConfigKey::kBridgeOrigins, line.settings().configurationPath(), problem);
            return false;
        }
        *origins << approved.origin;
    }
    return true;
}

// The service's port (--port, else the configuration file, else the default) and approved
// origins (the configuration file); false with `error` naming where a wrong value came from.
bool readServiceSettings(const CommandLine &line, bridge::BridgeOptions *options, QString *error)
{
    const SettingValue port = line.setting(kPort);
    qint64 number = 0;
    if (!parseBounded(port.value, 1, 65535, &number)) {
        *error = QStringLiteral("port %1 (%2) is not a port from 1 to 65535")
                     .arg(port.value, port.origin);
        return false;
    }
    options->port = quint16(number);
    return readApprovedOrigins(line, &options->approvedOrigins, error);
}
} // namespace

ExitCode runServe(const QStringList &arguments)
{
    const bridge::BridgeOptions defaults;
    CommandLine line(
        QStringLiteral("serve"),
        QStringLiteral("[--port N] [--allow-origin ORIGINS] [options] | --service [--port N]"),
        QStringLiteral("Serves the demo page and a web bridge to the scriptable object on "
                       "127.0.0.1: a page calls its\nseven methods through Qt WebChannel over a "
                       "WebSocket. Prints the page's address, with a fresh\naccess token, on "
                       "standard output, and runs until SIGINT or SIGTERM.\n\nWith --service: "
                       "the bridge for the pages of approved sites (zthost origins), on a\nfixed "
                       "port, with no token and no page of its own; prints its WebSocket address."));
    line.addOption({kService,
                    QStringLiteral("Service mode: the port from --port, else %1 in the "
                                   "configuration file, else %2; pages only from approved origins.")
                        .arg(ConfigKey::kBridgePort)
                        .arg(bridge::kDefaultServicePort)});
    line.addOption({kPort, QStringLiteral("The port (default 0: any free one; with --service, see there)."),
                    QStringLiteral("N")});
    line.addOption({kListen,
                    QStringLiteral("The address to listen on; only 127.0.0.1 is accepted."),
                    QStringLiteral("ADDRESS"), QStringLiteral("127.0.0.1")});
    line.addOption({kAllowOrigin,
                    QStringLiteral("More origins whose pages may connect, comma-separated, e.g. "
                                   "http://localhost:8080 (the bridge's own is always allowed)."),
                    QStringLiteral("ORIGINS")});
    line.addOption({kMaxClients,
                    QStringLiteral("Pages connected at once (default %1).").arg(defaults.maxClients),
                    QStringLiteral("N"), QString::number(defaults.maxClients)});
    line.addOption({kMaxMessage,
                    QStringLiteral("Largest message a page may send, in bytes (default %1: an "
                                   "envelope of 12 MiB); a larger one closes its connection. "
                                   "Each page sending that much costs about twice it in memory.")
                        .arg(defaults.maxMessageBytes),
                    QStringLiteral("BYTES"), QString::number(defaults.maxMessageBytes)});
    line.addOption({kWeb,
                    QStringLiteral("The page's folder (default: %1).")
                        .arg(bridge::defaultWebRootCandidates().join(QLatin1String(", else "))),
                    QStringLiteral("DIR")});
    line.setNotes(QStringLiteral(
        "Anyone with the printed address can use the key while the bridge runs: keep it to "
        "yourself.\nThe service lets in any page of an approved origin, and only this user's "
        "own connections;\nit reads the approved sites from %1 again each time that file changes.")
                      .arg(configurationFilePath()));
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);

    // The bridge reaches the user's key: no other interface, whatever is asked.
    const QHostAddress listen(line.value(kListen));
    if (listen != QHostAddress(QHostAddress::LocalHost))
        return line.usageError(QStringLiteral("--listen %1: the bridge listens on 127.0.0.1 only")
                                   .arg(line.value(kListen)));
    bridge::BridgeOptions options;
    const bool service = line.isSet(kService);
    options.mode = service ? bridge::BridgeMode::Service : bridge::BridgeMode::Token;
    if (service && line.isSet(kAllowOrigin))
        return line.usageError(QStringLiteral("--allow-origin is for the demo page; approve a "
                                              "site for the service with zthost origins add ORIGIN"));
    if (service && line.isSet(kWeb))
        return line.usageError(QStringLiteral("--web is for the demo page; the service serves no page"));
    qint64 number = 0;
    if (line.isSet(kPort)
        && !parseBounded(line.value(kPort), service ? 1 : 0, 65535, &number))
        return line.usageError(QStringLiteral("--port %1 is not a port from %2 to 65535")
                                   .arg(line.value(kPort))
                                   .arg(service ? 1 : 0));
    options.port = quint16(number);
    if (!parseBounded(line.value(kMaxClients), 1, 1024, &number))
        return line.usageError(QStringLiteral("--max-clients %1 is not a number from 1 to 1024")
                                   .arg(line.value(kMaxClients)));
    options.maxClients = int(number);
    constexpr qint64 kLargestMessage = qint64(1) << 30;
    if (!parseBounded(line.value(kMaxMessage), 1024, kLargestMessage, &number))
        return line.usageError(QStringLiteral("--max-message %1 is not a size from 1024 to %2 bytes")
                                   .arg(line.value(kMaxMessage))
                                   .arg(kLargestMessage));
    options.maxMessageBytes = number;
    if (line.isSet(kAllowOrigin)) {
        for (const QString &origin : line.value(kAllowOrigin).split(QLatin1Char(','), Qt::SkipEmptyParts))
            options.extraOrigins << origin.trimmed();
    }
    options.webRoot = line.isSet(kWeb) ? line.value(kWeb) : bridge::defaultWebRoot();
    // The service takes the sites its user approves or removes while it runs, from the next
    // page that connects on.
    std::optional<ApprovedOriginsFile> originsFile;
    if (service) {
        QString error;
        if (!readServiceSettings(line, &options, &error))
            return failed(error);
        originsFile.emplace(
            line.settings().configurationPath(),
            [&line](QStringList *origins, QString *error) {
                return readApprovedOrigins(line, origins, error);
            },
            options.approvedOrigins);
        options.approvedOriginsUpdate = [&originsFile](QString *problem) {
            return originsFile->update(problem);
        };
    }

    // Installed before the host starts, so that a stop asked for during start-up still goes
    // through the orderly shutdown below.
    bridge::TerminationSignals stopSignals;
    if (!stopSignals.isInstalled())
        return failed(QStringLiteral("cannot install the SIGINT and SIGTERM handlers"));
    int stopSignal = 0;
    QObject::connect(&stopSignals, &bridge::TerminationSignals::received, [&stopSignal](int number) {
        stopSignal = number;
        QCoreApplication::quit();
    });

    std::unique_ptr<HostSession> session = startHost(line.hostOptions());
    if (!session || !checkDeviceChoice(*session))
        return ExitCode::Failure;
    {
        HostLog &log = session->core().log();
        const bridge::ChannelWarnings channelWarnings(
            [&log](const QString &line) { log.warning(QStringLiteral("bridge: ") + line); });
        bridge::WebBridge bridge(*session, options, &log);
        QString error;
        if (!bridge.start(&error))
            return failed(error);
        if (service) {
            printLine(bridge.webSocketUrl().toString(QUrl::FullyEncoded));
            if (options.approvedOrigins.isEmpty())
                printMessage(QStringLiteral("zthost serve: no site is approved yet: approve one "
                                            "with zthost origins add ORIGIN; the service takes "
                                            "it from the next page on."));
            else
                printMessage(QStringLiteral("zthost serve: the service takes pages of %1; "
                                            "Ctrl+C stops it.")
                                 .arg(options.approvedOrigins.join(QLatin1String(", "))));
        } else {
            printLine(bridge.pageUrl().toString(QUrl::FullyEncoded));
        }
        const QString device = deviceToOpenText(*session);
        if (!device.isEmpty())
            printMessage(QStringLiteral("zthost serve: pages open %1").arg(device));
        if (!service) {
            printMessage(QStringLiteral("zthost serve: open the address above in a browser on "
                                        "this machine; Ctrl+C stops the bridge."));
        }
        QCoreApplication::exec();
    }
    // The pages are gone; now the scriptable object and the plug-in's core agent, then the core.
    session.reset();
    printMessage(QStringLiteral("zthost serve: stopped (%1)")
                     .arg(stopSignal == SIGTERM ? QStringLiteral("SIGTERM") : QStringLiteral("SIGINT")));
    return ExitCode::Success;
}

} // namespace zthost::cli
