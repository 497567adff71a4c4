// Finding the key's first container of a given type.

#include "zt_cryptographic.h"

#include "agents.h"
#include "core_trace.h"
#include "crypto_error.h"

#include <QStringList>

quint64 ZtCryptographic::GetContainer(KeyObjectAgent *userKey, int type)
{
    ZT_TRACE_DEBUG("GetContainer", QStringLiteral("start"));
    if (!userKey || !userKey->target()) {
        ZT_TRACE_DEBUG("GetContainer", QStringLiteral(" userKey is NULL "));
        SetCryptoErrorCode(ZtError::kNoKeyDevice);
        return 0;
    }

    QStringList names;
    userKey->invokeHelper(QStringLiteral("enumContainer"), &names);
    if (names.isEmpty()) {
        ZT_TRACE_DEBUG("GetContainer", QStringLiteral(" get container count = 0 "));
        SetCryptoErrorCode(ZtError::kNoCertificateContainer);
        return 0;
    }

    for (QString name : qAsConst(names)) {
        quint64 handle = 0;
        userKey->invokeHelper(QStringLiteral("openContainer"), &handle, &name);
        if (!handle) {
            // The search ends at the first container that does not open, without an error
            // code: the callers report the missing container themselves.
            ZT_TRACE_DEBUG("GetContainer", QStringLiteral(" userKey openContainer fail "));
            return 0;
        }
        int containerType = 0;
        userKey->invokeHelper(QStringLiteral("getContainerType"), &containerType, &handle);
        if (containerType == type) {
            ZT_TRACE_DEBUG("GetContainer", QStringLiteral(" end "));
            return handle; // left open for the caller
        }
        userKey->invokeHelper(QStringLiteral("closeContainer"), nullptr, &handle);
    }
    return 0;
}
