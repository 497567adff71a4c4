#include "commands.h"

#include "command_line.h"
#include "console.h"
#include "device_choice.h"
#include "device_listing.h"
#include "session_steps.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace zthost::cli {

namespace {
QString triesText(const DeviceEntry &entry)
{
    if (entry.triesLeft < 0)
        return QStringLiteral("unknown");
    // No tries left: the PIN is locked until `zthost unblock` gives it a new value.
    if (entry.triesLeft == 0)
        return QStringLiteral("locked (0 of %1)").arg(entry.maxTries);
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

const QString kJson = QStringLiteral("json");

// {"driver": PATH, "chosen": NAME or null, "devices": [{"device", "application",
// "userPinTriesLeft", "userPinMaxTries"}], "problems": [TEXT]}, the tries null when the driver
// cannot tell.
QByteArray devicesJson(const QString &driverPath, const QString &chosen,
                       const QList<DeviceEntry> &entries, const QStringList &problems)
{
    QJsonArray devices;
    for (const DeviceEntry &entry : entries) {
        devices.append(QJsonObject{
            {QStringLiteral("device"), entry.device},
            {QStringLiteral("application"), entry.application},
            {QStringLiteral("userPinTriesLeft"),
             entry.triesLeft < 0 ? QJsonValue() : QJsonValue(qint64(entry.triesLeft))},
            {QStringLiteral("userPinMaxTries"),
             entry.maxTries < 0 ? QJsonValue() : QJsonValue(qint64(entry.maxTries))},
        });
    }
    const QJsonObject root{{QStringLiteral("driver"), driverPath},
                           {QStringLiteral("chosen"), chosen.isEmpty() ? QJsonValue() : QJsonValue(chosen)},
                           {QStringLiteral("devices"), devices},
                           {QStringLiteral("problems"), QJsonArray::fromStringList(problems)}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact) + '\n';
}

void printTable(const QList<DeviceEntry> &entries)
{
    const QString deviceHeading = QStringLiteral("device");
    const QString applicationHeading = QStringLiteral("application");
    const int deviceWidth = widest(entries, deviceHeading, &DeviceEntry::device);
    const int applicationWidth = widest(entries, applicationHeading, &DeviceEntry::application);
    printLine(QStringLiteral("%1  %2  %3")
                  .arg(deviceHeading, -deviceWidth)
                  .arg(applicationHeading, -applicationWidth)
                  .arg(QStringLiteral("user PIN tries left")));
    for (const DeviceEntry &entry : entries) {
        printLine(QStringLiteral("%1  %2  %3")
                      .arg(entry.device, -deviceWidth)
                      .arg(entry.application, -applicationWidth)
                      .arg(triesText(entry)));
    }
}
} // namespace

ExitCode runDevices(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("devices"), QStringLiteral("[options]"),
                     QStringLiteral("Lists the key devices the smart-key driver sees, each "
                                    "application on its own line, with the user PIN's tries "
                                    "left\n(\"locked\" once none are left: 'zthost unblock' gives it a new PIN).\nNothing is written to standard output when there is "
                                    "no device. A device or application that cannot be read "
                                    "is named on standard error, the others are still listed, "
                                    "and the exit status is 1.\nEvery device is listed; a chosen one (--device, "
                                    "$ZTHOST_DEVICE, host/device) is named on standard error,\n"
                                    "and the exit status is 1 when the driver does not list it."));
    line.addOption({kJson,
                    QStringLiteral("One line of JSON instead: {\"driver\", \"chosen\", \"devices\": "
                                   "[{\"device\", \"application\", \"userPinTriesLeft\", "
                                   "\"userPinMaxTries\"}], \"problems\"}, tries null when "
                                   "unknown.")});
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    const std::optional<SessionOptions> host = line.hostOptions();
    if (!host)
        return ExitCode::Failure;
    applyToProcess(*host);

    QList<DeviceEntry> entries;
    QStringList problems;
    QStringList notes;
    QStringList listed;
    QString error;
    // Every device, chosen or not: this is where a user finds the names to choose from.
    if (!listDevices(host->skfDriverPath, host->driverProfile, &entries, &problems, &notes,
                     &error, &listed))
        return failed(error);
    for (const QString &note : qAsConst(notes))
        printError(note);
    const QString &chosen = host->deviceName;
    if (!chosen.isEmpty() && !listed.contains(chosen))
        return failed(unlistedDeviceText(chosen, host->skfDriverPath, listed));

    if (line.isSet(kJson))
        writeStandardOutput(devicesJson(host->skfDriverPath, chosen, entries, problems));
    else if (!entries.isEmpty())
        printTable(entries);
    if (entries.isEmpty() && problems.isEmpty())
        printError(QStringLiteral("no key device: %1 lists none").arg(host->skfDriverPath));
    for (const QString &problem : qAsConst(problems))
        printError(problem);
    if (!chosen.isEmpty())
        printError(QStringLiteral("commands use key device \"%1\" (%2)")
                       .arg(chosen, line.setting(QStringLiteral("device")).origin));
    return problems.isEmpty() ? ExitCode::Success : ExitCode::Failure;
}

} // namespace zthost::cli
