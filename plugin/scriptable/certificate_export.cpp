// Reading the encryption certificate of the key's SM2 container.

#include "zt_cryptographic.h"

#include "agents.h"
#include "core_trace.h"
#include "crypto_error.h"

namespace {
constexpr int kSm2ContainerType = 2;
} // namespace

QString ZtCryptographic::WebGetCertData(QString certtype)
{
    ZT_TRACE_DEBUG("WebGetCertData", QStringLiteral(" start "));
    quint64 container = GetContainer(m_userKey, kSm2ContainerType);
    if (!container) {
        ZT_TRACE_DEBUG("WebGetCertData", QStringLiteral(" get sm2 container fail "));
        SetCryptoErrorCode(ZtError::kContainerNotFound);
        return QStringLiteral("false");
    }

    // Pages pass a certificate type, but only the encryption certificate is ever handed out:
    // the number is read and dropped.
    bool isNumber = false;
    certtype.toInt(&isNumber);
    Q_UNUSED(isNumber)

    QByteArray certificate;
    bool signCertificate = false; // the encryption certificate
    m_userKey->invokeHelper(QStringLiteral("exportCertificate"), &certificate, &container,
                            &signCertificate);
    // The container stays open; each call opens it again.
    if (certificate.isEmpty()) {
        ZT_TRACE_ERROR("WebGetCertData", QStringLiteral(" export container certData fail "));
        SetCryptoErrorCode(ZtError::kEncryptionCertificateNotRead);
        return QStringLiteral("false");
    }
    ZT_TRACE_DEBUG("WebGetCertData", QStringLiteral(" end "));
    return QString::fromLatin1(certificate.toBase64());
}
