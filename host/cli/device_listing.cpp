#include "device_listing.h"

#include "key/name_list.h"
#include "key/skf_driver.h"
#include "key/skf_errors.h"

#include <QStringList>

namespace zthost::cli {

namespace {
// What one connected device's applications report; the device stays connected meanwhile.
void listApplications(const SkfFunctions &skf, const QString &device, DEVHANDLE handle,
                      QList<DeviceEntry> *entries, QStringList *problems)
{
    QStringList applications;
    ULONG code = readNameList(
        [&](LPSTR list, ULONG *size) { return skf.EnumApplication(handle, list, size); },
        &applications);
    if (code != SAR_OK) {
        *problems << QStringLiteral("device \"%1\": %2").arg(device, skfFailureText("SKF_EnumApplication", code));
        return;
    }
    for (const QString &application : qAsConst(applications)) {
        DeviceEntry entry{device, application};
        QByteArray name = application.toUtf8();
        HAPPLICATION opened = nullptr;
        code = skf.OpenApplication(handle, name.data(), &opened);
        if (code != SAR_OK || !opened) {
            *problems << QStringLiteral("device \"%1\" application \"%2\": %3")
                             .arg(device, application, skfFailureText("SKF_OpenApplication", code));
            continue;
        }
        if (skf.GetPINInfo) {
            ULONG maxTries = 0;
            ULONG triesLeft = 0;
            BOOL isDefault = FALSE;
            code = skf.GetPINInfo(opened, USER_TYPE, &maxTries, &triesLeft, &isDefault);
            if (code == SAR_OK) {
                entry.maxTries = long(maxTries);
                entry.triesLeft = long(triesLeft);
            } else {
                *problems << QStringLiteral("device \"%1\" application \"%2\": %3")
                                 .arg(device, application, skfFailureText("SKF_GetPINInfo", code));
            }
        }
        skf.CloseApplication(opened);
        entries->append(entry);
    }
}
} // namespace

bool listDevices(const QString &driverPath, QList<DeviceEntry> *entries, QStringList *problems,
                 QString *error, QStringList *listed)
{
    std::unique_ptr<SkfDriver> driver = SkfDriver::load(driverPath, error);
    if (!driver)
        return false;
    const SkfFunctions &skf = driver->functions();

    QStringList devices;
    const ULONG code = readNameList(
        [&](LPSTR list, ULONG *size) { return skf.EnumDev(TRUE, list, size); }, &devices);
    if (code != SAR_OK) {
        *error = skfFailureText("SKF_EnumDev", code);
        return false;
    }
    if (listed)
        *listed = devices;
    for (const QString &device : qAsConst(devices)) {
        QByteArray name = device.toUtf8();
        DEVHANDLE handle = nullptr;
        const ULONG connected = skf.ConnectDev(name.data(), &handle);
        if (connected != SAR_OK || !handle) {
            *problems << QStringLiteral("device \"%1\": %2").arg(device, skfFailureText("SKF_ConnectDev", connected));
            continue;
        }
        listApplications(skf, device, handle, entries, problems);
        skf.DisConnectDev(handle);
    }
    return true;
}

} // namespace zthost::cli
