#pragma once

#include "key/driver_profile.h"

#include <QString>

namespace zthost {

class HostCore;

struct StandardComponentOptions
{
    // The smart-key driver the key component loads; empty for defaultSkfDriverPath().
    QString skfDriverPath;
    DriverProfile driverProfile = DriverProfile::Auto;
};

// Registers the four components the plug-in asks for: the signature manager and the key
// component (shared, made on first request), the certificate and ASN.1 components (one per
// request, reclaimed by the core).
void registerStandardComponents(HostCore &core, const StandardComponentOptions &options
                                                = StandardComponentOptions());

} // namespace zthost
