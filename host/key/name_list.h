#pragma once

#include <skf.h>

#include <QStringList>

#include <functional>

namespace zthost {

// Reads a driver's name list (devices, applications, containers): the size query with a null
// buffer, then the list. `call` forwards its two arguments to the driver function. Answers the
// driver's code; SAR_OK with the names in the driver's order on success.
ULONG readNameList(const std::function<ULONG(LPSTR, ULONG *)> &call, QStringList *names);

// Splits a multi-string (each name NUL-terminated, one more NUL at the end) of `size` bytes.
// A list that lacks its final NULs still ends at `size`: nothing past it is read.
QStringList splitNameList(const QByteArray &list);

} // namespace zthost
