#pragma once

#include <QString>
#include <QStringList>

namespace zthost {

// Where a session looks for what it is given no path for. A program running from inside the
// build tree it was built in takes that tree's files first; any other copy, installed or moved,
// looks only beside itself, where an installation puts them (<bin>/../lib, <bin>/../share), so an
// installed program never reaches into a build tree that happens to still exist. The *Path
// functions answer the first candidate that exists, or the last one when none does, so that the
// failure to load it names a path.

// The folder of the running executable (QCoreApplication's when there is one).
QString executableDirectory();

// Whether the running executable lies inside the build tree this code was compiled in.
bool runsFromBuildTree();

// A path relative to the installed executable's folder ("../lib/x"), made absolute against the
// running executable's folder.
QString besideExecutable(const QString &relativePath);

QStringList defaultPluginCandidates();
QString defaultPluginPath();

// The software key device's driver.
QStringList defaultSkfDriverCandidates();
QString defaultSkfDriverPath();

} // namespace zthost
