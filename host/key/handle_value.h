#pragma once

#include <QtGlobal>

namespace zthost {

// Driver handles travel through the plug-in as qulonglong: the pointer's value, unchanged.
inline qulonglong handleValue(void *handle)
{
    return static_cast<qulonglong>(reinterpret_cast<quintptr>(handle));
}

inline void *handleFromValue(qulonglong value)
{
    return reinterpret_cast<void *>(static_cast<quintptr>(value));
}

} // namespace zthost
