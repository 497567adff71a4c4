#pragma once

#include "key/driver_profile.h"

#include <QList>
#include <QString>

namespace zthost::cli {

// One application of one device, as the driver reports it.
struct DeviceEntry
{
    QString device;
    QString application;
    // User PIN tries: -1 each when the driver cannot tell (no SKF_GetPINInfo, or it failed).
    long triesLeft = -1;
    long maxTries = -1;
};

// Every device the smart-key driver at `driverPath` (loaded with `profile`) lists, each with
// each of its applications (SKF_EnumDev, SKF_ConnectDev, SKF_EnumApplication,
// SKF_OpenApplication, SKF_GetPINInfo). False with `error` set when the driver cannot be loaded
// or cannot list its devices; a device that fails to connect is reported in `problems` and the
// listing goes on. What the driver cannot tell at all goes to `notes`: "smart-key driver /x has
// no SKF_GetPINInfo: tries left unknown". `listed` (when given) gets every device name the
// driver lists, those that failed to connect too.
bool listDevices(const QString &driverPath, DriverProfile profile, QList<DeviceEntry> *entries,
                 QStringList *problems, QStringList *notes, QString *error,
                 QStringList *listed = nullptr);

} // namespace zthost::cli
