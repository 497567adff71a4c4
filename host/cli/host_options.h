#pragma once

#include <QString>

namespace zthost::cli {

enum class Verbosity { Normal, Debug };

// What every command accepts, resolved to its defaults.
struct HostOptions
{
    QString pluginPath;  // --plugin, else defaultPluginPath()
    QString skfPath;     // --skf, else the software device's driver (defaultSkfDriverPath())
    QString root;        // --root; empty: $SOFTSKF_ROOT, else the software device's default
    QString hostLogPath; // --host-log; empty: standard error, warnings and errors only
    Verbosity verbosity = Verbosity::Normal; // -v: the host's debug lines and Qt's debug channel
};

// The software device root in effect: `root` when given, else what the driver reads.
QString effectiveRoot(const HostOptions &options);

// Points the software device driver at `options.root` when one was given: the driver reads
// SOFTSKF_ROOT at each enumeration, so this must happen before the first device call.
void applyRoot(const HostOptions &options);

// Qt's debug channel is off unless Debug: the plug-in dumps whole envelopes to it.
void applyVerbosity(Verbosity verbosity);

} // namespace zthost::cli
