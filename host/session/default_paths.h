#pragma once

#include <QString>
#include <QStringList>

namespace zthost {

// Where a session looks for what it is given no path for: the file built in this build tree
// first, then the installed one. The *Path functions answer the first candidate that exists, or
// the installed path when none does, so that the failure to load it names a path.

QStringList defaultPluginCandidates();
QString defaultPluginPath();

// The software key device's driver.
QStringList defaultSkfDriverCandidates();
QString defaultSkfDriverPath();

} // namespace zthost
