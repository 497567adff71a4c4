// `zthost passwd` and `zthost unblock`: PIN management straight through the smart-key driver
// (SKF_ChangePIN, SKF_UnblockPIN), since the plug-in has no method for it. Any driver that
// exports those functions will do, not only the software device.
#include "commands.h"

#include "command_line.h"
#include "console.h"
#include "device_choice.h"
#include "pin_source.h"
#include "session_steps.h"

#include "core/pin_wipe.h"
#include "key/name_list.h"
#include "key/skf_driver.h"
#include "key/skf_errors.h"

#include <functional>

namespace zthost::cli {

namespace {

const QString kPin = QStringLiteral("pin");
const QString kAdminPin = QStringLiteral("admin-pin");
const QString kNewPin = QStringLiteral("new-pin");
constexpr char kNewPinVariable[] = "ZTHOST_NEW_PIN";
constexpr char kAdminPinVariable[] = "ZTHOST_ADMIN_PIN";

// One application opened through the driver, closed and disconnected when it goes.
class OpenedApplication
{
public:
    OpenedApplication() = default;
    ~OpenedApplication()
    {
        if (application)
            skf->closeApplication(application);
        if (device)
            skf->disconnectDev(device);
    }
    OpenedApplication(const OpenedApplication &) = delete;
    OpenedApplication &operator=(const OpenedApplication &) = delete;

    SkfDriver *skf = nullptr;
    DEVHANDLE device = nullptr;
    HAPPLICATION application = nullptr;
    QString deviceName;
};

// The device named `wanted` (else the first one the driver lists) and its first application:
// the same the host's key component opens for the other commands.
bool openApplication(SkfDriver &driver, const QString &wanted, OpenedApplication *opened,
                     QString *error)
{
    SkfDriver &skf = driver;
    opened->skf = &skf;
    QStringList devices;
    ULONG code = readNameList(
        [&](LPSTR list, ULONG *size) { return skf.enumDev(true, list, size); }, &devices);
    if (code != SAR_OK) {
        *error = skfFailureText("SKF_EnumDev", code);
        return false;
    }
    if (devices.isEmpty()) {
        *error = QStringLiteral("no key device: %1 lists none").arg(driver.path());
        return false;
    }
    if (!wanted.isEmpty() && !devices.contains(wanted)) {
        *error = unlistedDeviceText(wanted, driver.path(), devices);
        return false;
    }
    opened->deviceName = wanted.isEmpty() ? devices.first() : wanted;
    QByteArray name = opened->deviceName.toUtf8();
    code = skf.connectDev(name.data(), &opened->device);
    if (code != SAR_OK || !opened->device) {
        opened->device = nullptr;
        *error = QStringLiteral("key device \"%1\": %2")
                     .arg(opened->deviceName, skfFailureText("SKF_ConnectDev", code));
        return false;
    }
    QStringList applications;
    code = readNameList(
        [&](LPSTR list, ULONG *size) { return skf.enumApplication(opened->device, list, size); },
        &applications);
    if (code != SAR_OK || applications.isEmpty()) {
        *error = QStringLiteral("key device \"%1\": %2")
                     .arg(opened->deviceName,
                          code != SAR_OK ? skfFailureText("SKF_EnumApplication", code)
                                         : QStringLiteral("no application"));
        return false;
    }
    QByteArray application = applications.first().toUtf8();
    code = skf.openApplication(opened->device, application.data(), &opened->application);
    if (code != SAR_OK || !opened->application) {
        opened->application = nullptr;
        *error = QStringLiteral("key device \"%1\": %2")
                     .arg(opened->deviceName, skfFailureText("SKF_OpenApplication", code));
        return false;
    }
    printError(QStringLiteral("using key device %1")
                   .arg(deviceInUseText(opened->deviceName, wanted, devices)));
    return true;
}

// The failure text of a PIN function, with the tries left when the driver counted one.
QString pinFailureText(const char *function, ULONG code, ULONG triesLeft, const QString &whose)
{
    QString text = skfFailureText(function, code);
    if (code == SAR_PIN_INCORRECT)
        text += QStringLiteral(", %1 %2 tries left").arg(triesLeft).arg(whose);
    else if (code == SAR_PIN_LOCKED && whose == QLatin1String("user PIN"))
        text += QStringLiteral("; 'zthost unblock' gives it a new value with the administrator PIN");
    return text;
}

void addNewPinOption(CommandLine &line)
{
    line.addOption({kNewPin,
                    QStringLiteral("The new user PIN, 4 to 64 bytes (else $ZTHOST_NEW_PIN, else "
                                   "asked for twice on the terminal)."),
                    QStringLiteral("PIN")});
}

// The new user PIN; ExitCode::Success when there is one.
ExitCode readNewUserPin(const CommandLine &line, Pin *pin)
{
    bool mismatch = false;
    *pin = readNewPin(line.optionalValue(kNewPin), QStringLiteral("New user PIN: "),
                      QStringLiteral("Repeat the new user PIN: "), kNewPinVariable, &mismatch);
    if (mismatch)
        return failed(QStringLiteral("the two new PINs typed differ; the PIN is unchanged"));
    if (pin->origin == PinOrigin::Missing)
        return line.usageError(QStringLiteral("no new user PIN: give --new-pin, set "
                                              "ZTHOST_NEW_PIN, or run on a terminal to be asked"));
    return ExitCode::Success;
}

// The driver the command line names, with `function` (SKF_ChangePIN or SKF_UnblockPIN) in it;
// null after printing why not.
// `host` gets the options the command line resolved.
std::unique_ptr<SkfDriver> loadDriverWith(const CommandLine &line, SkfFunction function,
                                          SessionOptions *host)
{
    QString error;
    if (!line.hostOptions(host, &error)) {
        printError(error);
        return nullptr;
    }
    applyToProcess(*host);
    std::unique_ptr<SkfDriver> driver =
        SkfDriver::load(host->skfDriverPath, host->driverProfile, &error);
    if (driver && !driver->require(function, &error))
        driver.reset();
    if (!driver)
        printError(error);
    return driver;
}

// The shared middle of passwd and unblock: reads the new user PIN, opens the application and
// hands `call` the first PIN (the current or the administrator one) and the new one as bytes.
// Every copy is wiped (core/pin_wipe.h) on every path. Answers Success with the driver's code and
// tries left in `code` and `triesLeft`, or the exit code of a step that stopped the command.
ExitCode callWithPinPair(SkfDriver &driver, const CommandLine &line, const QString &device,
                         Pin &first,
                         OpenedApplication *opened, ULONG *code, ULONG *triesLeft,
                         const std::function<ULONG(char *, char *, ULONG *)> &call)
{
    Pin newPin;
    const ExitCode readNew = readNewUserPin(line, &newPin);
    if (readNew != ExitCode::Success) {
        wipePin(first.text);
        return readNew;
    }
    QString error;
    if (!openApplication(driver, device, opened, &error)) {
        wipePin(first.text);
        wipePin(newPin.text);
        return failed(error);
    }
    QByteArray firstBytes = first.text.toUtf8();
    QByteArray newBytes = newPin.text.toUtf8();
    wipePin(first.text);
    wipePin(newPin.text);
    *code = call(firstBytes.data(), newBytes.data(), triesLeft);
    wipePin(firstBytes);
    wipePin(newBytes);
    return ExitCode::Success;
}

} // namespace

ExitCode runPasswd(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("passwd"),
                     QStringLiteral("[--pin PIN] [--new-pin PIN] [--device NAME] [options]"),
                     QStringLiteral("Changes the user PIN of a key device (SKF_ChangePIN). The "
                                    "keys stay usable under the new PIN only.\nA wrong current "
                                    "PIN takes one of its tries."));
    line.addOption({kPin,
                    QStringLiteral("The current user PIN (else $ZTHOST_PIN, else asked for on "
                                   "the terminal)."),
                    QStringLiteral("PIN")});
    addNewPinOption(line);
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    SessionOptions host;
    std::unique_ptr<SkfDriver> driver = loadDriverWith(line, SkfFunction::ChangePIN, &host);
    if (!driver)
        return ExitCode::Failure;

    Pin oldPin = readPin(line.optionalValue(kPin), QStringLiteral("Current user PIN: "));
    if (oldPin.origin == PinOrigin::Missing)
        return line.usageError(QStringLiteral("no current user PIN: give --pin, set ZTHOST_PIN, "
                                              "or run on a terminal to be asked"));
    OpenedApplication opened;
    ULONG code = SAR_OK;
    ULONG triesLeft = 0;
    const ExitCode stopped = callWithPinPair(
        *driver, line, host.deviceName, oldPin, &opened, &code, &triesLeft,
        [&](char *oldBytes, char *newBytes, ULONG *tries) {
            return driver->changePin(opened.application, USER_TYPE, oldBytes, newBytes, tries);
        });
    if (stopped != ExitCode::Success)
        return stopped;
    if (code != SAR_OK)
        return failed(QStringLiteral("key device \"%1\": %2")
                          .arg(opened.deviceName,
                               pinFailureText("SKF_ChangePIN", code, triesLeft,
                                              QStringLiteral("user PIN"))));
    printLine(QStringLiteral("changed the user PIN of key device \"%1\"").arg(opened.deviceName));
    return ExitCode::Success;
}

ExitCode runUnblock(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("unblock"),
                     QStringLiteral("[--admin-pin PIN] [--new-pin PIN] [--device NAME] [options]"),
                     QStringLiteral("Gives a key device's user PIN a new value and all its tries "
                                    "back, after the administrator PIN (SKF_UnblockPIN).\nThe keys "
                                    "stay usable. A wrong administrator PIN takes one of its own "
                                    "tries; once they are used up it is locked for good."));
    line.addOption({kAdminPin,
                    QStringLiteral("The administrator PIN (else $ZTHOST_ADMIN_PIN, else asked "
                                   "for on the terminal)."),
                    QStringLiteral("PIN")});
    addNewPinOption(line);
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    SessionOptions host;
    std::unique_ptr<SkfDriver> driver = loadDriverWith(line, SkfFunction::UnblockPIN, &host);
    if (!driver)
        return ExitCode::Failure;

    Pin adminPin = readPin(line.optionalValue(kAdminPin), QStringLiteral("Administrator PIN: "),
                           kAdminPinVariable);
    if (adminPin.origin == PinOrigin::Missing)
        return line.usageError(QStringLiteral("no administrator PIN: give --admin-pin, set "
                                              "ZTHOST_ADMIN_PIN, or run on a terminal to be asked"));
    OpenedApplication opened;
    ULONG code = SAR_OK;
    ULONG triesLeft = 0;
    const ExitCode stopped = callWithPinPair(
        *driver, line, host.deviceName, adminPin, &opened, &code, &triesLeft,
        [&](char *adminBytes, char *newBytes, ULONG *tries) {
            return driver->unblockPin(opened.application, adminBytes, newBytes, tries);
        });
    if (stopped != ExitCode::Success)
        return stopped;
    if (code != SAR_OK)
        return failed(QStringLiteral("key device \"%1\": %2")
                          .arg(opened.deviceName, pinFailureText("SKF_UnblockPIN", code, triesLeft,
                                                                 QStringLiteral("administrator PIN"))));
    printLine(QStringLiteral("unblocked the user PIN of key device \"%1\": new PIN set, all tries "
                             "back")
                  .arg(opened.deviceName));
    return ExitCode::Success;
}

} // namespace zthost::cli
