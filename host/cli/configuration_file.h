#pragma once

#include <QSettings>
#include <QString>

#include <memory>

namespace zthost::cli {

// The user's configuration file: ${XDG_CONFIG_HOME:-~/.config}/zthost/zthost.conf, in INI form.
// Command-line options override the environment, which overrides this file. The file is read
// as it is at each start; nothing caches it.
QString configurationFilePath();

// The file opened for reading and writing (QSettings, INI). A file that does not exist reads as
// empty and is created, with its folder, on the first write.
std::unique_ptr<QSettings> openConfiguration();
// The same for the file at `path` (zthost --config FILE).
std::unique_ptr<QSettings> openConfiguration(const QString &path);

// The keys, as QSettings spells them ("group/key" is key= under [group] in the file).
namespace ConfigKey {
inline const QString kPlugin = QStringLiteral("host/plugin");             // plug-in path
inline const QString kSkf = QStringLiteral("host/skf");                   // smart-key driver path
inline const QString kDevice = QStringLiteral("host/device");             // device name
inline const QString kRoot = QStringLiteral("host/root");                 // software device root
inline const QString kDriverProfile = QStringLiteral("host/driver-profile"); // driver type widths
inline const QString kBridgePort = QStringLiteral("bridge/port");         // the service's port
inline const QString kBridgeOrigins = QStringLiteral("bridge/origins");   // approved site origins
} // namespace ConfigKey

} // namespace zthost::cli
