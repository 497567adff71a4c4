#pragma once

#include <QByteArray>
#include <QString>

// Appends one line to a log file whose folder must already exist: the folder is never created,
// so a log is switched on and off by creating and removing its folder while the host runs.
// The file is opened in mode "a+" for this line only and closed again.
//
// The line is written with printf's "%s": the text `stamp()` returns (asked only when the
// folder exists), then `separator`, then `message` + "\n" as UTF-8. A NUL inside the message therefore ends the line early and swallows its newline; the
// dispatcher's trace relies on that (see Q_Dispatch).
using LogStamp = QByteArray (*)();
void appendLogLine(const QString &folder, const QString &fileName, LogStamp stamp,
                   const char *separator, const QString &message);
