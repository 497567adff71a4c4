#pragma once

#include <QByteArray>
#include <QString>

#include <string>

namespace zthost {

// How the host treats a PIN, wherever one passes (the command line, the web bridge, the key
// object), stated here once:
// - A PIN never reaches a log, a file, an error text or a command's output.
// - Every copy the host makes for its own use (the bytes handed to the driver, the argument of
//   a call, a line read from the terminal) is wiped with wipePin as soon as the step that needs
//   it is over.
// - wipePin overwrites a buffer only when the host holds the only reference to it. A QString or
//   QByteArray shares its buffer with every copy of it (Qt's implicit sharing); writing through
//   a shared one would make a private copy and wipe that instead, leaving the original. A
//   shared buffer is released and left to its other holders: the caller's own string, the
//   copy Qt's meta-object system makes of a call's arguments, the page's message as the web
//   channel parsed it. What the plug-in and the driver copy internally is beyond the host's
//   reach too.

// Overwrites the PIN's characters with zeros in place when this is the only reference to them
// (the buffer then stays allocated, zeroed, until the string goes); otherwise lets this
// reference go, leaving an empty string.
void wipePin(QString &pin);
void wipePin(QByteArray &pin);
void wipePin(std::string &pin);

} // namespace zthost
