// Opening a digital envelope on the key device.

#include "zt_cryptographic.h"

#include "agents.h"
#include "core_trace.h"
#include "crypto_error.h"
#include "crypto_log.h"
#include "device_records.h"
#include "processor_time.h"
#include "zt_envelope_data.h"

#include <plugin_host/session_key_algorithm.h>

#include <ctime>
#include <utility>

namespace {
// Line tags the host's log readers know for this method's trace.
constexpr int kStartTag = 305;
constexpr int kNoKeyTag = 310;
constexpr int kInputLengthTag = 315;
constexpr int kNoContainerTag = 331;
constexpr int kBlobTag = 343;
constexpr int kNoSessionKeyTag = 349;
constexpr int kDecryptInitTag = 364;
constexpr int kContentLengthTag = 370;
constexpr int kDecryptTag = 374;

constexpr int kSm2ContainerType = 2;
// SGD_SM4_ECB: the session key's algorithm is fixed, whatever the page asks for.
constexpr qulonglong kSessionKeyAlgorithm = ZtSessionKey::kAlgorithmId;

QString failed()
{
    return QStringLiteral("false");
}
} // namespace

QString ZtCryptographic::WebZtDecode(QString bas64EncData, quint64 ulAlgID)
{
    Q_UNUSED(ulAlgID)
    const std::clock_t start = std::clock();
    coreTraceDebug("WebZtDecode", kStartTag, QStringLiteral(" start "));
    _logCrypto(QStringLiteral("[ZtCryptographic::WebZtDecode] start "));

    if (!m_userKey) {
        coreTraceError("WebZtDecode", kNoKeyTag, QStringLiteral(" not exist key, return false "));
        SetCryptoErrorCode(ZtError::kNoKeyDevice);
        return failed();
    }
    coreTraceDebug("WebZtDecode", kInputLengthTag,
                   QStringLiteral("encode base64 data length : [%1]").arg(bas64EncData.size()));

    // Envelopes run to many megabytes, so each full-size intermediate goes as soon as the next
    // step holds what it needs: the UTF-8 text before the parse, the envelope's own copy of the
    // content before the device call, the ciphertext and plaintext before the answer is made.
    QByteArray packedKey;
    QByteArray content;
    {
        ZtEnvelopeData envelope;
        // Lenient decoding: characters outside the Base64 alphabet are skipped. load() has set
        // the code on failure.
        QByteArray der = QByteArray::fromBase64(bas64EncData.toUtf8());
        if (!envelope.load(std::move(der)))
            return failed();
        packedKey = envelope.GetEncKeyData();
        content = envelope.GetEncContent();
    }

    qulonglong container = GetContainer(m_userKey, kSm2ContainerType);
    if (!container) {
        coreTraceError("WebZtDecode", kNoContainerTag,
                       QStringLiteral(" not found sm2 container, return false "));
        SetCryptoErrorCode(ZtError::kContainerNotFound); // replaces what the lookup set
        return failed();
    }

    QByteArray blob = ZtDeviceRecords::eccCipherBlob(packedKey);
    coreTraceDebug("WebZtDecode", kBlobTag,
                   QStringLiteral(" ecc Cipher Blob  data = ") + QString::fromLatin1(blob.toHex()));

    // Handles, identifiers and lengths cross to the host as 64-bit values.
    const qulonglong blobLength = qulonglong(blob.size());
    const qulonglong sessionKey =
        m_userKey->importSessionKey(container, kSessionKeyAlgorithm, blob, blobLength);
    if (!sessionKey) {
        coreTraceError("WebZtDecode", kNoSessionKeyTag,
                       QStringLiteral("get hSessionKey handle is NULL"));
        SetCryptoErrorCode(ZtError::kKeyDeviceMismatch);
        return failed();
    }

    // The array views the record, which outlives the call.
    const ZtDeviceRecords::BlockCipherParam record = ZtDeviceRecords::sm4EcbDecryptParam();
    QByteArray param = QByteArray::fromRawData(record.data(), int(record.size()));
    if (!m_userKey->decryptInit(sessionKey, param)) {
        coreTraceError("WebZtDecode", kDecryptInitTag, QStringLiteral("decrypt Init fail"));
        SetCryptoErrorCode(ZtError::kDecryptInitFailed);
        return failed();
    }

    coreTraceDebug("WebZtDecode", kContentLengthTag,
                   QStringLiteral("Encode Content data length : %1").arg(content.size()));
    const qulonglong contentLength = qulonglong(content.size());
    QByteArray plaintext = m_userKey->decrypt(sessionKey, content, contentLength);
    content = QByteArray();
    // An envelope whose content decrypts to nothing is a failure, not an empty success.
    if (plaintext.isEmpty()) {
        coreTraceError("WebZtDecode", kDecryptTag, QStringLiteral("decrypt data fail"));
        SetCryptoErrorCode(ZtError::kDecryptFailed);
        return failed();
    }

    _logCrypto(formatLogLine("[ZtCryptographic::WebZtDecode] decode data spend time : [%f]S",
                             processorSecondsSince(start)));
    const QByteArray encoded = plaintext.toBase64();
    plaintext = QByteArray();
    return QString::fromLatin1(encoded);
}
