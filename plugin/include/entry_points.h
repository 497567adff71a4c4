#pragma once

#include "zt_export.h"

#include <QObject>
#include <QString>

// The four entry points a host application resolves by their plain names. Call order:
// ComponentInit once, then CreateComponent as often as needed, then ComponentDestroy once.
// Zt_GetVersion may be called at any time.
extern "C" {

// Stores 11 (the length of the version text) into *length when length is not null. With a null
// buffer that is the whole answer and the result is 0. With a buffer the call always ends with
// 11 zero bytes written to it and -1: the stored 11 replaces the caller's capacity, which then
// never exceeds 11. Hosts rely on the size query only. A buffer with a null length is not
// guarded against.
ZT_EXPORT int Zt_GetVersion(char *buffer, unsigned int *length);

// A new ZtCryptographic, owned by the caller, when progId is "Crypto.ZtCryptographic.1" or,
// failing that, classId is "7D19A0C4-5522-3333-9E1B84C20D57A6F0"; null otherwise.
ZT_EXPORT QObject *CreateComponent(const QString &progId, const QString &classId);

// Keeps a new core agent around `core` (never deleted by the library). A second call replaces
// the first agent without destroying it. Always 1.
ZT_EXPORT int ComponentInit(QObject *core);

// Deletes the core agent, if any. The core and the objects CreateComponent made are untouched.
ZT_EXPORT void ComponentDestroy();

} // extern "C"
