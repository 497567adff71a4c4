#pragma once

#include <QString>
#include <QStringList>

namespace zthost::cli {

// Where the command looks for the plug-in when given none: the one built beside it in the same
// build tree, then the installed one.
QStringList defaultPluginCandidates();

// The first candidate that exists; the installed path when none does, so that the failure to
// load it names a path.
QString defaultPluginPath();

} // namespace zthost::cli
