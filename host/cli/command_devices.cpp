#include "commands.h"

#include "command_line.h"
#include "console.h"
#include "device_listing.h"
#include "session_steps.h"

namespace zthost::cli {

namespace {
QString triesText(const DeviceEntry &entry)
{
    if (entry.triesLeft < 0)
        return QStringLiteral("unknown");
    return QStringLiteral("%1 of %2").arg(entry.triesLeft).arg(entry.maxTries);
}

int widest(const QList<DeviceEntry> &entries, const QString &heading,
           QString DeviceEntry::*field)
{
    int width = heading.size();
    for (const DeviceEntry &entry : entries)
        width = qMax(width, (entry.*field).size());
    return width;
}
} // namespace

ExitCode runDevices(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("devices"), QStringLiteral("[options]"),
                     QStringLiteral("Lists the key devices the smart-key driver sees, each "
                                    "application on its own line, with the user PIN's tries "
                                    "left.\nNothing is written to standard output when there is "
                                    "no device. A device or application that cannot be read "
                                    "is named on standard error, the others are still listed, "
                                    "and the exit status is 1."));
    const CommandLine::Parse parsed = line.parse(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    if (!line.positionalArguments().isEmpty())
        return line.usageError(QStringLiteral("unexpected argument \"%1\"").arg(line.positionalArguments().first()));
    const SessionOptions host = line.hostOptions();
    applyToProcess(host);

    QList<DeviceEntry> entries;
    QStringList problems;
    QStringList notes;
    QString error;
    if (!listDevices(host.skfDriverPath, host.driverProfile, &entries, &problems, &notes, &error))
        return failed(error);
    for (const QString &note : qAsConst(notes))
        printError(note);

    if (entries.isEmpty() && problems.isEmpty()) {
        printError(QStringLiteral("no key device: %1 lists none").arg(host.skfDriverPath));
        return ExitCode::Success;
    }
    if (!entries.isEmpty()) {
        const QString deviceHeading = QStringLiteral("device");
        const QString applicationHeading = QStringLiteral("application");
        const int deviceWidth = widest(entries, deviceHeading, &DeviceEntry::device);
        const int applicationWidth = widest(entries, applicationHeading, &DeviceEntry::application);
        printLine(QStringLiteral("%1  %2  %3")
                      .arg(deviceHeading, -deviceWidth)
                      .arg(applicationHeading, -applicationWidth)
                      .arg(QStringLiteral("user PIN tries left")));
        for (const DeviceEntry &entry : qAsConst(entries)) {
            printLine(QStringLiteral("%1  %2  %3")
                          .arg(entry.device, -deviceWidth)
                          .arg(entry.application, -applicationWidth)
                          .arg(triesText(entry)));
        }
    }
    for (const QString &problem : qAsConst(problems))
        printError(problem);
    return problems.isEmpty() ? ExitCode::Success : ExitCode::Failure;
}

} // namespace zthost::cli
