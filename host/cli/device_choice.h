#pragma once

#include <QString>
#include <QStringList>

namespace zthost {
class HostSession;
}

namespace zthost::cli {

// Which key device a command uses, and saying so on standard error: with --device (or
// ZTHOST_DEVICE, or host/device in the configuration file) the key component shows the plug-in
// that device only; without, the plug-in takes the first the driver lists, as it always has.

// "no key device "X": /x/libdrv.so lists alpha, bravo" (or "lists none").
QString unlistedDeviceText(const QString &wanted, const QString &driverPath,
                           const QStringList &listed);

// How the device in use was chosen, after "using key device": "\"alpha\"", or "\"alpha\", the
// first of 2 the driver lists (alpha, bravo); --device NAME chooses another" when there are
// several and none was chosen.
QString deviceInUseText(const QString &used, const QString &chosen, const QStringList &listed);

// Before the plug-in opens a key: false after printing unlistedDeviceText() when a device was
// chosen that the driver does not list. True when none was chosen, or the driver cannot be
// loaded (the plug-in's own failure then says what happened).
bool checkDeviceChoice(HostSession &session);

// For a host whose pages open the key later (serve): "key device ..." (deviceInUseText) for the
// device WebOpenKey will open, or empty when the driver lists none.
QString deviceToOpenText(HostSession &session);

// After WebOpenKey: prints "zthost: using key device ..." (deviceInUseText) on standard error.
void announceDeviceInUse(HostSession &session);

} // namespace zthost::cli
