#pragma once

#include <QString>
#include <QStringList>

namespace zthost::bridge {

// Where `zthost serve` looks for the page when given no --web: the web/ folder of the source
// tree this program was built from, then the installed copy.
QStringList defaultWebRootCandidates();

// The first candidate holding an index.html; the installed one when none does, so that the
// failure names a folder.
QString defaultWebRoot();

} // namespace zthost::bridge
