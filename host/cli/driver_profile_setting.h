#pragma once

#include "key/driver_profile.h"

#include <QString>

#include <optional>

namespace zthost::cli {

// The environment variable that sets the driver profile.
inline constexpr char kDriverProfileVariable[] = "ZTHOST_DRIVER_PROFILE";

// The driver profile of this run: `option` (--driver-profile) when given, else
// $ZTHOST_DRIVER_PROFILE when set and not empty, else host/driver-profile in the configuration
// file, else auto. Empty with `error` set when the place that decides holds no profile name:
// "--driver-profile \"narrow\" is not one of auto, standard, wide", or the same naming
// ZTHOST_DRIVER_PROFILE or "host/driver-profile in /home/u/.config/zthost/zthost.conf".
std::optional<DriverProfile> resolveDriverProfile(const std::optional<QString> &option,
                                                  QString *error);

} // namespace zthost::cli
