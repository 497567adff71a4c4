#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::cli {

// The name that stands for standard input or output wherever a command reads or writes a file.
inline const QString kStandardStream = QStringLiteral("-");

// The whole file, or all of standard input for "-". False with `error` naming the path and the
// reason, e.g. "cannot read /x/in.txt: No such file or directory".
bool readWholeFile(const QString &path, QByteArray *bytes, QString *error);

// Writes `bytes` to standard output when `path` is empty or "-". Otherwise to a new file in
// `path`'s folder, readable and writable by its owner only (0600), renamed over `path` once
// every byte is written: a failure leaves `path` as it was and no partial or
// temporary file behind. An existing `path` gets mode 0600 too, since what is written may be a
// plaintext. False with `error` naming the path and the reason.
bool writeResult(const QString &path, const QByteArray &bytes, QString *error);

} // namespace zthost::cli
