#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::cli {

// Standard output carries results only; messages go to standard error. Both are written as
// UTF-8 whatever the locale says, since the library's messages are Chinese text and a C locale
// would turn them into question marks.

// Bytes as they are (plaintexts may be binary).
bool writeStandardOutput(const QByteArray &bytes);
// One line of result text.
void printLine(const QString &line);
// One line on standard error, prefixed "zthost: ".
void printError(const QString &message);
// One line on standard error, as it is.
void printMessage(const QString &message);

} // namespace zthost::cli
