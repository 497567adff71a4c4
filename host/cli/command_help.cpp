#include "commands.h"

#include "console.h"

namespace zthost::cli {

namespace {
constexpr int kNameWidth = 9;
} // namespace

ExitCode runHelp(const QStringList &arguments)
{
    if (!arguments.isEmpty() && arguments.first() != QLatin1String("--help")
        && arguments.first() != QLatin1String("-h")) {
        for (const CommandEntry &entry : commandTable()) {
            if (arguments.first() == QLatin1String(entry.name) && entry.run != runHelp)
                return entry.run({QStringLiteral("--help")});
        }
        if (arguments.first() != QLatin1String("help")) {
            printMessage(QStringLiteral("zthost help: unknown command \"%1\"").arg(arguments.first()));
            printMessage(QStringLiteral("Try 'zthost help'."));
            return ExitCode::Usage;
        }
    }
    QStringList lines;
    lines << QStringLiteral("Usage: zthost COMMAND [options]") << QString()
          << QStringLiteral("The reference host of the cryptographic plug-in, on the command line.")
          << QString() << QStringLiteral("Commands:");
    for (const CommandEntry &entry : commandTable())
        lines << QStringLiteral("  %1 %2").arg(QLatin1String(entry.name), -kNameWidth).arg(QLatin1String(entry.summary));
    lines << QString()
          << QStringLiteral("Every command takes --plugin PATH, --skf PATH, --device NAME, --root DIR,")
          << QStringLiteral("--config FILE, --host-log FILE, -v and --help, before or after its name;")
          << QStringLiteral("'zthost COMMAND --help' says more, 'zthost config' shows the settings in")
          << QStringLiteral("effect. 'zthost --version' shows the versions of zthost, the plug-in and")
          << QStringLiteral("the driver.")
          << QString()
          << QStringLiteral("Exit status: 0 success, 1 an operation failed, 2 a usage error.");
    printLine(lines.join(QLatin1Char('\n')));
    return ExitCode::Success;
}

} // namespace zthost::cli
