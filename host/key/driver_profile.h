#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace zthost {

// How wide a smart-key driver's ULONG and BOOL are. The standard makes both 4 bytes; some vendors'
// headers declare them `unsigned long` and `long`, 8 bytes on 64-bit Linux. The width decides
// where the fields of the structures the host hands a driver lie (ECCCIPHERBLOB, BLOCKCIPHERPARAM,
// DEVINFO); the out-parameters are safe in either width without it (key/out_parameter.h).
//
// Auto: the driver adapter finds the width from the first ULONG the driver is seen writing
// (key/skf_driver.h says how). Standard and Wide: the width is set; a driver seen writing the
// other width is refused at load rather than trusted.
enum class DriverProfile { Auto, Standard, Wide };

// "auto", "standard", "wide".
QString driverProfileName(DriverProfile profile);
QStringList driverProfileNames();
// The profile `text` names (exactly, lower case); empty for anything else.
std::optional<DriverProfile> parseDriverProfile(const QString &text);

// The ULONG width in bytes a set profile stands for: 4 or 8; 0 for Auto.
int ulongBytesOf(DriverProfile profile);

} // namespace zthost
