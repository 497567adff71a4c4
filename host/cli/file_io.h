#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::cli {

// The whole file. False with `error` naming the path and the reason, e.g.
// "cannot read /x/in.txt: No such file or directory".
bool readWholeFile(const QString &path, QByteArray *bytes, QString *error);

// Writes `bytes` to `path` (created or truncated), or to standard output when `path` is empty.
// False with `error` naming the path and the reason.
bool writeResult(const QString &path, const QByteArray &bytes, QString *error);

} // namespace zthost::cli
