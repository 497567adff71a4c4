// Opening, verifying and closing the user's key device.

#include "zt_cryptographic.h"

#include "agents.h"
#include "core_trace.h"
#include "crypto_error.h"
#include "crypto_log.h"
#include "processor_time.h"

#include <ctime>

namespace {
// The agent of the opened key. WebOpenKey drops the agent it held before without deleting it;
// a function of its own names that deliberate leak for the sanitizers' suppression file.
__attribute__((noinline)) KeyObjectAgent *keyAgentFor(QObject *keyObject)
{
    return new KeyObjectAgent(keyObject);
}
} // namespace

bool ZtCryptographic::WebOpenKey()
{
    const std::clock_t start = std::clock();
    ZT_TRACE_DEBUG("WebOpenKey", QStringLiteral(" start "));
    _logCrypto(QStringLiteral("[ZtCryptographic::WebOpenKey] start openkey "));

    if (!m_signatureManager) {
        ZT_TRACE_ERROR("WebOpenKey", QStringLiteral("new ZtSignatureManager fail"));
        SetCryptoErrorCode(ZtError::kUnknownDeviceError);
        return false;
    }

    QObject *keyManager = nullptr;
    m_signatureManager->invokeHelper(QStringLiteral("getZtKey"), &keyManager);
    if (keyManager) {
        // Owned by the object "getZtKey" returned, which the host releases; one per call.
        ZtKeyAgent *keyComponent = new ZtKeyAgent(keyManager);
        int count = 0;
        keyComponent->invokeHelper(QStringLiteral("count"), &count);
        if (count > 0) {
            QObject *keyObject = nullptr;
            int index = 0; // the first key, whatever else is attached
            keyComponent->invokeHelper(QStringLiteral("open"), &keyObject, &index);
            // A failed "open" forgets the earlier key; failures before it keep it. Pages rely
            // on that difference. An earlier agent is dropped without being deleted.
            m_userKey = keyObject ? keyAgentFor(keyObject) : nullptr;
            if (m_userKey && m_userKey->target()) {
                _logCrypto(formatLogLine("[ZtCryptographic::WebOpenKey] end, spend time [%f]S",
                                         processorSecondsSince(start)));
                return true;
            }
        }
    }

    ZT_TRACE_DEBUG("WebOpenKey", QStringLiteral(" end, open key fail "));
    SetCryptoErrorCode(ZtError::kNoKeyDevice);
    return false;
}

bool ZtCryptographic::WebCloseKey()
{
    ZT_TRACE_DEBUG("WebCloseKey", QStringLiteral(" start "));
    _logCrypto(QStringLiteral("[ZtCryptographic::WebCloseKey]"));
    // The key stays the current one after closing: later calls still reach it, and the device
    // answers them as it sees fit.
    if (m_userKey)
        m_userKey->invokeHelper(QStringLiteral("close"), nullptr);
    return true;
}

bool ZtCryptographic::WebVerifyPin(QString pinCode)
{
    ZT_TRACE_DEBUG("WebVerifyPin", QStringLiteral(" start "));
    if (!m_userKey) {
        SetCryptoErrorCode(ZtError::kNoKeyDevice);
        return false;
    }
    bool verified = false;
    bool adminPin = false; // the user PIN
    m_userKey->invokeHelper(QStringLiteral("verifyPin"), &verified, &pinCode, &adminPin);
    if (!verified) {
        SetCryptoErrorCode(ZtError::kWrongPin);
        return false;
    }
    return true;
}
