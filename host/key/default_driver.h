#pragma once

#include <QString>
#include <QStringList>

namespace zthost {

// Where the host looks for a smart-key driver when it is given none: the software device built
// in the same build tree, then the installed one.
QStringList defaultSkfDriverCandidates();

// The first candidate that exists; the installed path when none does, so that the failure to
// load it names a path.
QString defaultSkfDriverPath();

} // namespace zthost
