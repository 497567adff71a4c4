#include "envelope_sealer.h"

#include "envelope_der_p.h"
#include "openssl_handles_p.h"
#include "recipient_certificate_p.h"
#include "sm2_session_key_p.h"
#include "sm4_content_p.h"

#include <openssl/rand.h>

namespace zthost {

static_assert(kSealerSessionKeySize == sealing::kSm4KeySize, "the session key is an SM4 key");
static_assert(kSealerSessionKeySize == sealing::Sm2Sizes::kSessionKey,
              "the SM2 ciphertext holds the whole session key");

namespace {
bool checkSessionKey(const QByteArray &sessionKey, QString *error)
{
    if (sessionKey.size() == kSealerSessionKeySize)
        return true;
    *error = QStringLiteral("the session key is %1 bytes, expected %2")
                 .arg(sessionKey.size())
                 .arg(kSealerSessionKeySize);
    return false;
}
} // namespace

QByteArray sealEnvelope(const QByteArray &recipientCertificateDer, const QByteArray &content,
                        QString *error)
{
    QByteArray sessionKey(kSealerSessionKeySize, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char *>(sessionKey.data()), sessionKey.size()) != 1) {
        *error = QStringLiteral("no random %1-byte session key: %2")
                     .arg(kSealerSessionKeySize)
                     .arg(sealing::openSslReason());
        return QByteArray();
    }
    const QByteArray envelope = sealEnvelope(recipientCertificateDer, content, sessionKey, error);
    sessionKey.fill('\0');
    return envelope;
}

QByteArray sealEnvelope(const QByteArray &recipientCertificateDer, const QByteArray &content,
                        const QByteArray &sessionKey, QString *error)
{
    if (content.isEmpty()) {
        *error = QStringLiteral("the content is empty: an envelope needs at least one byte of "
                                "content");
        return QByteArray();
    }
    if (content.size() > kSealerMaxContentSize) {
        *error = QStringLiteral("the content is %1 bytes, more than the %2 an envelope takes")
                     .arg(content.size())
                     .arg(kSealerMaxContentSize);
        return QByteArray();
    }
    sealing::Recipient recipient;
    if (!checkSessionKey(sessionKey, error)
        || !sealing::readRecipient(recipientCertificateDer, &recipient, error))
        return QByteArray();

    sealing::EnvelopeContents contents;
    contents.issuerDer = recipient.issuerDer;
    contents.serialDer = recipient.serialDer;
    contents.encryptedKey = sealing::sm2SessionKey(recipient.key, sessionKey, error);
    if (contents.encryptedKey.isEmpty())
        return QByteArray();
    contents.encryptedContent = sealing::sm4EcbEncrypt(sessionKey, content, error);
    if (contents.encryptedContent.isEmpty())
        return QByteArray();
    return sealing::envelopeDer(contents, error);
}

QByteArray sealSessionKey(const QByteArray &recipientCertificateDer, const QByteArray &sessionKey,
                          QString *error)
{
    sealing::Recipient recipient;
    if (!checkSessionKey(sessionKey, error)
        || !sealing::readRecipient(recipientCertificateDer, &recipient, error))
        return QByteArray();
    return sealing::sm2SessionKey(recipient.key, sessionKey, error);
}

} // namespace zthost
