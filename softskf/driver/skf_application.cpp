// Application entry points: enumeration, opening, PINs and the login state.
#include "skf.h"

#include "device_layout.h"
#include "device_store.h"
#include "entry_guard.h"
#include "file_io.h"
#include "name_list.h"
#include "pin_kdf.h"
#include "pin_store.h"
#include "registry.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstring>

using namespace softskf;
using namespace softskf::driver;

namespace {

Status pinKindOf(ULONG type, PinKind *kind)
{
    if (type == ADMIN_TYPE) {
        *kind = PinKind::Admin;
        return Status::success();
    }
    if (type == USER_TYPE) {
        *kind = PinKind::User;
        return Status::success();
    }
    return Status::failure(SAR_USER_TYPE_INVALID, "PIN type " + std::to_string(type)
                                                      + " is neither admin (0) nor user (1)");
}

// The application with its device still on disk.
Status presentApplication(HAPPLICATION handle, ApplicationSession **application)
{
    *application = registry().find<ApplicationSession>(handle);
    if (!*application)
        return invalidHandle("application");
    const auto *device = registry().find<DeviceSession>(Registry::handleOf((*application)->device));
    if (!device)
        return invalidHandle("device");
    return checkDevicePresent(device->dir);
}

// A PIN argument, reading one byte past the longest PIN at most, so the length check needs no
// NUL.
std::string pinArgument(LPSTR pin)
{
    return std::string(pin, strnlen(pin, kMaxPinLength + 1));
}

// Wipes a std::string's bytes before it goes.
struct WipedString {
    std::string text;
    ~WipedString() { OPENSSL_cleanse(text.data(), text.size()); }
};

} // namespace

extern "C" {

ULONG DEVAPI SKF_EnumApplication(DEVHANDLE hDev, LPSTR szAppName, ULONG *pulSize)
{
    return guarded(__func__, [&]() -> Status {
        const DeviceSession *device = registry().find<DeviceSession>(hDev);
        if (!device)
            return invalidHandle("device");
        std::vector<std::string> names;
        Status status = listApplications(device->dir, &names);
        if (!status.ok())
            return status;
        return writeNameList(names, szAppName, pulSize);
    });
}

ULONG DEVAPI SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION *phApplication)
{
    return guarded(__func__, [&]() -> Status {
        const DeviceSession *device = registry().find<DeviceSession>(hDev);
        if (!device)
            return invalidHandle("device");
        if (!szAppName)
            return nullArgument("application name");
        if (!phApplication)
            return nullArgument("application handle pointer");
        *phApplication = nullptr;
        const std::string name(szAppName, strnlen(szAppName, layout::kMaxNameLength + 1));
        if (!layout::isValidName(name))
            return Status::failure(SAR_APPLICATION_NAME_INVALID,
                                   "\"" + name.substr(0, layout::kMaxNameLength)
                                       + "\" is not an application name");
        std::vector<std::string> names;
        Status status = listApplications(device->dir, &names);
        if (!status.ok())
            return status;
        if (std::find(names.begin(), names.end(), name) == names.end())
            return Status::failure(SAR_APPLICATION_NOT_EXISTS,
                                   "device " + device->name + " has no application " + name);
        ApplicationSession application;
        application.device = Registry::idOf(hDev);
        application.name = name;
        application.dir = joinPath(device->dir, name);
        *phApplication = registry().add(std::move(application));
        return Status::success();
    });
}

ULONG DEVAPI SKF_CloseApplication(HAPPLICATION hApplication)
{
    return guarded(__func__, [&]() -> Status {
        if (!registry().find<ApplicationSession>(hApplication))
            return invalidHandle("application");
        registry().removeApplication(Registry::idOf(hApplication));
        return Status::success();
    });
}

ULONG DEVAPI SKF_VerifyPIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szPIN,
                           ULONG *pulRetryCount)
{
    return guarded(__func__, [&]() -> Status {
        ApplicationSession *application = nullptr;
        Status status = presentApplication(hApplication, &application);
        if (!status.ok())
            return status;
        PinKind kind;
        status = pinKindOf(ulPINType, &kind);
        if (!status.ok())
            return status;
        if (!szPIN)
            return nullArgument("PIN");
        // Reads one byte past the longest PIN at most, so the length check needs no NUL.
        const std::string pin(szPIN, strnlen(szPIN, kMaxPinLength + 1));
        std::uint32_t remaining = 0;
        SecretBytes sealingKey;
        // An admin check beside a user login hands over the KEK, which lets a device of the
        // earlier layout gain its admin wrap.
        status = verifyPinCounting(application->dir, kind, pin, &remaining, &sealingKey,
                                   application->userLoggedIn ? &application->sealingKey : nullptr);
        const bool counted = status.ok() || status.code == SAR_PIN_INCORRECT
                             || status.code == SAR_PIN_LOCKED;
        if (pulRetryCount && counted)
            *pulRetryCount = remaining;
        if (status.ok()) {
            if (kind == PinKind::User) {
                application->userLoggedIn = true;
                application->sealingKey = std::move(sealingKey);
            } else {
                application->adminLoggedIn = true;
            }
        } else if (counted) {
            // A failed check ends the login it was about, as a card resets its security state.
            if (kind == PinKind::User) {
                application->forgetUserLogin();
            } else {
                application->adminLoggedIn = false;
            }
        }
        return status;
    });
}

ULONG DEVAPI SKF_ChangePIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szOldPin,
                           LPSTR szNewPin, ULONG *pulRetryCount)
{
    return guarded(__func__, [&]() -> Status {
        ApplicationSession *application = nullptr;
        Status status = presentApplication(hApplication, &application);
        if (!status.ok())
            return status;
        PinKind kind;
        status = pinKindOf(ulPINType, &kind);
        if (!status.ok())
            return status;
        if (!szOldPin || !szNewPin)
            return nullArgument("PIN");
        const WipedString oldPin{pinArgument(szOldPin)};
        const WipedString newPin{pinArgument(szNewPin)};
        std::uint32_t remaining = 0;
        status = changePinCounting(application->dir, kind, oldPin.text, newPin.text, &remaining);
        const bool counted = status.ok() || status.code == SAR_PIN_INCORRECT
                             || status.code == SAR_PIN_LOCKED;
        if (pulRetryCount && counted)
            *pulRetryCount = remaining;
        if (counted && !status.ok()) {
            if (kind == PinKind::User)
                application->forgetUserLogin();
            else
                application->adminLoggedIn = false;
        }
        return status;
    });
}

ULONG DEVAPI SKF_UnblockPIN(HAPPLICATION hApplication, LPSTR szAdminPIN, LPSTR szNewUserPIN,
                            ULONG *pulRetryCount)
{
    return guarded(__func__, [&]() -> Status {
        ApplicationSession *application = nullptr;
        Status status = presentApplication(hApplication, &application);
        if (!status.ok())
            return status;
        if (!szAdminPIN || !szNewUserPIN)
            return nullArgument("PIN");
        const WipedString adminPin{pinArgument(szAdminPIN)};
        const WipedString newUserPin{pinArgument(szNewUserPIN)};
        std::uint32_t remaining = 0;
        status = unblockUserPinCounting(application->dir, adminPin.text, newUserPin.text,
                                        &remaining);
        const bool counted = status.ok() || status.code == SAR_PIN_INCORRECT
                             || status.code == SAR_PIN_LOCKED;
        if (pulRetryCount && counted)
            *pulRetryCount = remaining;
        if (counted && !status.ok())
            application->adminLoggedIn = false;
        return status;
    });
}

ULONG DEVAPI SKF_GetPINInfo(HAPPLICATION hApplication, ULONG ulPINType, ULONG *pulMaxRetryCount,
                            ULONG *pulRemainRetryCount, BOOL *pbDefaultPin)
{
    return guarded(__func__, [&]() -> Status {
        ApplicationSession *application = nullptr;
        Status status = presentApplication(hApplication, &application);
        if (!status.ok())
            return status;
        PinKind kind;
        status = pinKindOf(ulPINType, &kind);
        if (!status.ok())
            return status;
        if (!pulMaxRetryCount || !pulRemainRetryCount || !pbDefaultPin)
            return nullArgument("a PIN information pointer");
        // Records are replaced by rename, so this read without the lock sees a whole one.
        PinRecord record;
        status = readPinRecord(application->dir, kind, &record);
        if (!status.ok())
            return status;
        *pulMaxRetryCount = record.maxRetries;
        *pulRemainRetryCount = record.remainingRetries;
        *pbDefaultPin = record.isDefault ? TRUE : FALSE;
        return Status::success();
    });
}

ULONG DEVAPI SKF_ClearSecureState(HAPPLICATION hApplication)
{
    return guarded(__func__, [&]() -> Status {
        ApplicationSession *application = registry().find<ApplicationSession>(hApplication);
        if (!application)
            return invalidHandle("application");
        application->forgetLogin();
        return Status::success();
    });
}

} // extern "C"
