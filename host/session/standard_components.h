#pragma once

#include "key/driver_profile.h"

#include <QString>

#include <memory>

namespace zthost {

class DriverAnswers;
class HostCore;

struct StandardComponentOptions
{
    // The smart-key driver the key component loads; empty for defaultSkfDriverPath().
    QString skfDriverPath;
    DriverProfile driverProfile = DriverProfile::Auto;
    // Where the key component records what its driver answers; null: nowhere a caller reads.
    std::shared_ptr<DriverAnswers> driverAnswers;
    // The only device the key component lists; empty for all of them.
    QString deviceName;
};

// Registers the four components the plug-in asks for: the signature manager and the key
// component (shared, made on first request), the certificate and ASN.1 components (one per
// request, reclaimed by the core).
void registerStandardComponents(HostCore &core, const StandardComponentOptions &options
                                                = StandardComponentOptions());

} // namespace zthost
