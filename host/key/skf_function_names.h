#pragma once

#include <QList>

namespace zthost {

// How the host uses one of the standard's functions.
enum class SkfFunctionUse {
    Needed,   // the key component cannot drive a key without it: the driver does not load
    Optional, // PIN tries, passwd and unblock use it; the rest works without
    Unused,   // the host never calls it
};

struct SkfFunctionName
{
    const char *name; // "SKF_VerifyPIN"
    SkfFunctionUse use;
};

// Every function the standard smart-key interface (GM/T 0016) names, in its order: devices,
// access control, applications, files, containers, cryptographic services. For telling what a
// driver leaves out, by name, before anything calls it.
const QList<SkfFunctionName> &standardSkfFunctions();

} // namespace zthost
