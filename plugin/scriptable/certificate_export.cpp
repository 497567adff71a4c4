// Reading the encryption certificate of the key's SM2 container.

#include "zt_cryptographic.h"

#include "agents.h"
#include "core_trace.h"
#include "crypto_error.h"

namespace {
// Line tags of this file's trace, as the host's log readers know them: fixed numbers rather than
// source lines, so that editing the file leaves the trace as it is.
constexpr int kStartTag = 15;
constexpr int kNoContainerTag = 18;
constexpr int kExportFailedTag = 35;
constexpr int kEndTag = 39;

constexpr int kSm2ContainerType = 2;
} // namespace

QString ZtCryptographic::WebGetCertData(QString certtype)
{
    coreTraceDebug("WebGetCertData", kStartTag, QStringLiteral(" start "));
    quint64 container = GetContainer(m_userKey, kSm2ContainerType);
    if (!container) {
        coreTraceDebug("WebGetCertData", kNoContainerTag,
                       QStringLiteral(" get sm2 container fail "));
        SetCryptoErrorCode(ZtError::kContainerNotFound);
        return QStringLiteral("false");
    }

    // Pages pass a certificate type, but only the encryption certificate is ever handed out:
    // the number is read and dropped.
    bool isNumber = false;
    certtype.toInt(&isNumber);
    Q_UNUSED(isNumber)

    const bool signCertificate = false; // the encryption certificate
    const QByteArray certificate = m_userKey->exportCertificate(container, signCertificate);
    // The container stays open; each call opens it again.
    if (certificate.isEmpty()) {
        coreTraceError("WebGetCertData", kExportFailedTag,
                       QStringLiteral(" export container certData fail "));
        SetCryptoErrorCode(ZtError::kEncryptionCertificateNotRead);
        return QStringLiteral("false");
    }
    coreTraceDebug("WebGetCertData", kEndTag, QStringLiteral(" end "));
    return QString::fromLatin1(certificate.toBase64());
}
