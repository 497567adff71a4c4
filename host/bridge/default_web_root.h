#pragma once

#include <QString>
#include <QStringList>

namespace zthost::bridge {

// Where `zthost serve` looks for the page when given no --web: the web/ folder of the source
// tree, for a program running from its build tree, then the installed copy beside the running
// program (<bin>/../share/zthost/web).
QStringList defaultWebRootCandidates();

// The first candidate holding an index.html; the installed one when none does, so that the
// failure names a folder.
QString defaultWebRoot();

} // namespace zthost::bridge
