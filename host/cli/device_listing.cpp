#include "device_listing.h"

#include "key/name_list.h"
#include "key/skf_driver.h"
#include "key/skf_errors.h"

#include <QStringList>

namespace zthost::cli {

namespace {
// What one connected device's applications report; the device stays connected meanwhile.
void listApplications(SkfDriver &skf, const QString &device, DEVHANDLE handle,
                      QList<DeviceEntry> *entries, QStringList *problems)
{
    QStringList applications;
    ULONG code = readNameList(
        [&](LPSTR list, ULONG *size) { return skf.enumApplication(handle, list, size); },
        &applications);
    if (code != SAR_OK) {
        *problems << QStringLiteral("device \"%1\": %2").arg(device, skfFailureText("SKF_EnumApplication", code));
        return;
    }
    for (const QString &application : qAsConst(applications)) {
        DeviceEntry entry{device, application};
        QByteArray name = application.toUtf8();
        HAPPLICATION opened = nullptr;
        code = skf.openApplication(handle, name.data(), &opened);
        if (code != SAR_OK || !opened) {
            *problems << QStringLiteral("device \"%1\" application \"%2\": %3")
                             .arg(device, application, skfFailureText("SKF_OpenApplication", code));
            continue;
        }
        if (skf.has(SkfFunction::GetPINInfo)) {
            ULONG maxTries = 0;
            ULONG triesLeft = 0;
            bool isDefault = false;
            code = skf.getPinInfo(opened, USER_TYPE, &maxTries, &triesLeft, &isDefault);
            if (code == SAR_OK) {
                entry.maxTries = long(maxTries);
                entry.triesLeft = long(triesLeft);
            } else {
                *problems << QStringLiteral("device \"%1\" application \"%2\": %3")
                                 .arg(device, application, skfFailureText("SKF_GetPINInfo", code));
            }
        }
        skf.closeApplication(opened);
        entries->append(entry);
    }
}
} // namespace

bool listDevices(const QString &driverPath, DriverProfile profile, QList<DeviceEntry> *entries,
                 QStringList *problems, QStringList *notes, QString *error, QStringList *listed)
{
    std::unique_ptr<SkfDriver> driver = SkfDriver::load(driverPath, profile, error);
    if (!driver)
        return false;
    SkfDriver &skf = *driver;
    if (!skf.has(SkfFunction::GetPINInfo))
        *notes << skf.missingText(SkfFunction::GetPINInfo) + QStringLiteral(": tries left unknown");

    QStringList devices;
    const ULONG code = readNameList(
        [&](LPSTR list, ULONG *size) { return skf.enumDev(true, list, size); }, &devices);
    if (code != SAR_OK) {
        *error = skfFailureText("SKF_EnumDev", code);
        return false;
    }
    if (listed)
        *listed = devices;
    for (const QString &device : qAsConst(devices)) {
        QByteArray name = device.toUtf8();
        DEVHANDLE handle = nullptr;
        const ULONG connected = skf.connectDev(name.data(), &handle);
        if (connected != SAR_OK || !handle) {
            *problems << QStringLiteral("device \"%1\": %2").arg(device, skfFailureText("SKF_ConnectDev", connected));
            continue;
        }
        listApplications(skf, device, handle, entries, problems);
        skf.disconnectDev(handle);
    }
    return true;
}

} // namespace zthost::cli
