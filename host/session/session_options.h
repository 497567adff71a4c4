#pragma once

#include "key/driver_profile.h"

#include <QString>

namespace zthost {

// Normal: the host log takes warnings and errors only. Trace: debug lines too, the plug-in's trace
// among them. Debug: Trace, and Qt's debug channel stays on, where the plug-in dumps whole
// envelopes (their encrypted key and content) as hex; it is off otherwise.
enum class Verbosity { Normal, Trace, Debug };

// How a host session starts. Empty paths take their defaults (session/default_paths.h).
struct SessionOptions
{
    QString pluginPath;
    QString skfDriverPath;
    // The widths of the driver's ULONG and BOOL (key/driver_profile.h); Auto detects them.
    DriverProfile driverProfile = DriverProfile::Auto;
    // The one key device the key component shows the plug-in, by the driver's name for it;
    // empty: every device the driver lists.
    QString deviceName;
    // The software key device's root folder; empty: what its driver finds ($SOFTSKF_ROOT, else
    // its default). Only the software device reads it.
    QString softKeyRoot;
    // Where the host's log goes; empty: standard error.
    QString hostLogPath;
    Verbosity verbosity = Verbosity::Normal;
};

// What the options change for the whole process, done here and nowhere else: SOFTSKF_ROOT when
// softKeyRoot is given (the software device's driver reads it at each enumeration, so before the
// first device call), and Qt's debug channel off unless Debug. HostSession::start does it; so
// does a command that talks to the driver without a session.
void applyToProcess(const SessionOptions &options);

} // namespace zthost
