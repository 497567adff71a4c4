// Opening, verifying and closing the user's key device.

#include "zt_cryptographic.h"

#include "agents.h"
#include "core_trace.h"
#include "crypto_error.h"
#include "crypto_log.h"
#include "processor_time.h"

#include <ctime>

namespace {
// Line tags of this file's trace, as the host's log readers know them: fixed numbers rather than
// source lines, so that editing the file leaves the trace as it is.
constexpr int kOpenKeyStartTag = 25;
constexpr int kNoSignatureManagerTag = 29;
constexpr int kOpenKeyFailedTag = 56;
constexpr int kCloseKeyStartTag = 63;
constexpr int kVerifyPinStartTag = 74;

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
    coreTraceDebug("WebOpenKey", kOpenKeyStartTag, QStringLiteral(" start "));
    _logCrypto(QStringLiteral("[ZtCryptographic::WebOpenKey] start openkey "));

    if (!m_signatureManager) {
        coreTraceError("WebOpenKey", kNoSignatureManagerTag,
                       QStringLiteral("new ZtSignatureManager fail"));
        SetCryptoErrorCode(ZtError::kUnknownDeviceError);
        return false;
    }

    QObject *keyManager = m_signatureManager->getZtKey();
    if (keyManager) {
        // Owned by the object "getZtKey" returned, which the host releases; one per call.
        ZtKeyAgent *keyComponent = new ZtKeyAgent(keyManager);
        if (keyComponent->count() > 0) {
            // The first key, whatever else is attached.
            QObject *keyObject = keyComponent->open(0);
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

    coreTraceDebug("WebOpenKey", kOpenKeyFailedTag, QStringLiteral(" end, open key fail "));
    SetCryptoErrorCode(ZtError::kNoKeyDevice);
    return false;
}

bool ZtCryptographic::WebCloseKey()
{
    coreTraceDebug("WebCloseKey", kCloseKeyStartTag, QStringLiteral(" start "));
    _logCrypto(QStringLiteral("[ZtCryptographic::WebCloseKey]"));
    // The key stays the current one after closing: later calls still reach it, and the device
    // answers them as it sees fit.
    if (m_userKey)
        m_userKey->close();
    return true;
}

bool ZtCryptographic::WebVerifyPin(QString pinCode)
{
    coreTraceDebug("WebVerifyPin", kVerifyPinStartTag, QStringLiteral(" start "));
    if (!m_userKey) {
        SetCryptoErrorCode(ZtError::kNoKeyDevice);
        return false;
    }
    const bool adminPin = false; // the user PIN
    if (!m_userKey->verifyPin(pinCode, adminPin)) {
        SetCryptoErrorCode(ZtError::kWrongPin);
        return false;
    }
    return true;
}
