#include "commands.h"

#include "console.h"
#include "global_options.h"

namespace zthost::cli {

const QList<CommandEntry> &commandTable()
{
    static const QList<CommandEntry> table = {
        {"demo", "the whole road on a fresh software key, step by step", runDemo},
        {"keygen", "make a software key device with one SM2 container", runKeygen},
        {"devices", "list the key devices the driver sees, with PIN tries left", runDevices},
        {"cert", "the key's SM2 encryption certificate, as Base64", runCert},
        {"encrypt", "make a digital envelope of a file for a certificate", runEncrypt},
        {"decrypt", "open a digital envelope on the key", runDecrypt},
        {"passwd", "change the user PIN of a key device", runPasswd},
        {"unblock", "new user PIN for a locked key device, with the admin PIN", runUnblock},
        {"doctor", "check the plug-in, driver, keys, certificate and log folders", runDoctor},
        {"call", "call methods of the scriptable object by name, several in one session", runCall},
        {"shell", "call methods of the scriptable object one line at a time", runShell},
        {"serve", "serve the demo page and a web bridge to the key on 127.0.0.1", runServe},
        {"config", "the settings in effect and where each came from; set, unset", runConfig},
        {"origins", "approve the sites whose pages the bridge service lets in", runOrigins},
        {"help", "this list, or a command's help", runHelp},
    };
    return table;
}

ExitCode dispatch(const QStringList &arguments)
{
    QStringList globals;
    QStringList rest;
    QString error;
    if (!splitLeadingGlobals(arguments, &globals, &rest, &error)) {
        printMessage(QStringLiteral("zthost: %1").arg(error));
        printMessage(QStringLiteral("Try 'zthost help'."));
        return ExitCode::Usage;
    }
    if (rest.isEmpty()) {
        printMessage(QStringLiteral("zthost: no command given"));
        printMessage(QStringLiteral("Try 'zthost help'."));
        return ExitCode::Usage;
    }
    const QString &name = rest.first();
    // The options before the command go first, so that the command's own come after them and
    // a positional `--` stays where it was.
    const QStringList commandArguments = globals + rest.mid(1);
    if (name == QLatin1String("--help") || name == QLatin1String("-h"))
        return runHelp({});
    if (name == QLatin1String("--version"))
        return runVersion(commandArguments);
    for (const CommandEntry &entry : commandTable()) {
        if (name == QLatin1String(entry.name))
            return entry.run(commandArguments);
    }
    printMessage(QStringLiteral("zthost: unknown command \"%1\"").arg(name));
    printMessage(QStringLiteral("Try 'zthost help'."));
    return ExitCode::Usage;
}

} // namespace zthost::cli
