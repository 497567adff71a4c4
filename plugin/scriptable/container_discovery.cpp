// Finding the key's first container of a given type.

#include "zt_cryptographic.h"

#include "agents.h"
#include "core_trace.h"
#include "crypto_error.h"

#include <QStringList>

namespace {
// Line tags of this file's trace, as the host's log readers know them: fixed numbers rather than
// source lines, so that editing the file leaves the trace as it is.
constexpr int kStartTag = 13;
constexpr int kNoKeyTag = 15;
constexpr int kNoContainerTag = 23;
constexpr int kOpenContainerFailedTag = 34;
constexpr int kEndTag = 40;
} // namespace

quint64 ZtCryptographic::GetContainer(KeyObjectAgent *userKey, int type)
{
    coreTraceDebug("GetContainer", kStartTag, QStringLiteral("start"));
    if (!userKey || !userKey->target()) {
        coreTraceDebug("GetContainer", kNoKeyTag, QStringLiteral(" userKey is NULL "));
        SetCryptoErrorCode(ZtError::kNoKeyDevice);
        return 0;
    }

    const QStringList names = userKey->enumContainer();
    if (names.isEmpty()) {
        coreTraceDebug("GetContainer", kNoContainerTag,
                       QStringLiteral(" get container count = 0 "));
        SetCryptoErrorCode(ZtError::kNoCertificateContainer);
        return 0;
    }

    for (const QString &name : names) {
        const quint64 handle = userKey->openContainer(name);
        if (!handle) {
            // The search ends at the first container that does not open, without an error
            // code: the callers report the missing container themselves.
            coreTraceDebug("GetContainer", kOpenContainerFailedTag,
                           QStringLiteral(" userKey openContainer fail "));
            return 0;
        }
        if (userKey->getContainerType(handle) == type) {
            coreTraceDebug("GetContainer", kEndTag, QStringLiteral(" end "));
            return handle; // left open for the caller
        }
        userKey->closeContainer(handle);
    }
    return 0;
}
