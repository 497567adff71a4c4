#include "envelope_maker.h"

#include "sm2_ciphertext.h"

#include "zt_envelope_data.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <memory>

namespace zthost::cli {

namespace {
constexpr int kSessionKeySize = 16;
constexpr int kSm4BlockSize = 16;
// A coordinate starts with a zero octet once in 256 encryptions; 64 tries failing in a row
// means something else is wrong.
constexpr int kMaxSm2Attempts = 64;

struct OpenSslFree
{
    void operator()(X509 *x) const { X509_free(x); }
    void operator()(EVP_PKEY_CTX *c) const { EVP_PKEY_CTX_free(c); }
    void operator()(EVP_CIPHER_CTX *c) const { EVP_CIPHER_CTX_free(c); }
};
template<typename T>
using Owned = std::unique_ptr<T, OpenSslFree>;

QString openSslReason()
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (!code)
        return QStringLiteral("no reason given");
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return QString::fromLatin1(text);
}

const unsigned char *bytesOf(const QByteArray &array)
{
    return reinterpret_cast<const unsigned char *>(array.constData());
}

bool encryptSessionKey(X509 *certificate, const QByteArray &sessionKey, QByteArray *packed,
                       QString *error)
{
    EVP_PKEY *publicKey = X509_get0_pubkey(certificate);
    if (!publicKey) {
        *error = QStringLiteral("the certificate's public key cannot be read: %1").arg(openSslReason());
        return false;
    }
    for (int attempt = 0; attempt < kMaxSm2Attempts; ++attempt) {
        Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, publicKey, nullptr));
        size_t size = 0;
        if (!context || EVP_PKEY_encrypt_init(context.get()) <= 0
            || EVP_PKEY_encrypt(context.get(), nullptr, &size, bytesOf(sessionKey),
                                size_t(sessionKey.size())) <= 0) {
            *error = QStringLiteral("SM2 encryption to the certificate's key failed (is it an SM2 "
                                    "key?): %1")
                         .arg(openSslReason());
            return false;
        }
        QByteArray der(int(size), '\0');
        if (EVP_PKEY_encrypt(context.get(), reinterpret_cast<unsigned char *>(der.data()), &size,
                             bytesOf(sessionKey), size_t(sessionKey.size())) <= 0) {
            *error = QStringLiteral("SM2 encryption failed: %1").arg(openSslReason());
            return false;
        }
        // The reported size may be the buffer's rather than the DER's: the parser takes the
        // length from the DER header.
        Sm2Ciphertext ciphertext;
        if (!parseSm2Ciphertext(der.left(int(size)), &ciphertext, error))
            return false;
        if (!hasFullLengthCoordinates(ciphertext))
            continue;
        *packed = packKeyData(ciphertext, error);
        return !packed->isEmpty();
    }
    *error = QStringLiteral("SM2 encryption gave a coordinate shorter than %1 bytes %2 times in "
                            "a row")
                 .arg(PackedKey::kCoordinateSize)
                 .arg(kMaxSm2Attempts);
    return false;
}

bool sm4EcbEncrypt(const QByteArray &key, const QByteArray &content, QByteArray *encrypted,
                   QString *error)
{
    Owned<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new());
    // PKCS#7 padding always adds at least one byte and at most one block.
    QByteArray out(content.size() + kSm4BlockSize, '\0');
    int written = 0;
    int finalWritten = 0;
    auto *buffer = reinterpret_cast<unsigned char *>(out.data());
    if (!context
        || EVP_EncryptInit_ex(context.get(), EVP_sm4_ecb(), nullptr, bytesOf(key), nullptr) != 1
        || EVP_CIPHER_CTX_set_padding(context.get(), 1) != 1
        || EVP_EncryptUpdate(context.get(), buffer, &written, bytesOf(content), content.size()) != 1
        || EVP_EncryptFinal_ex(context.get(), buffer + written, &finalWritten) != 1) {
        *error = QStringLiteral("SM4-ECB encryption of %1 bytes failed: %2")
                     .arg(content.size())
                     .arg(openSslReason());
        return false;
    }
    out.resize(written + finalWritten);
    *encrypted = out;
    return true;
}
} // namespace

QByteArray makeEnvelope(const QByteArray &certificateDer, const QByteArray &content,
                        QString *error)
{
    const unsigned char *p = bytesOf(certificateDer);
    Owned<X509> certificate(d2i_X509(nullptr, &p, certificateDer.size()));
    if (!certificate) {
        *error = QStringLiteral("the recipient certificate (%1 bytes) does not parse: %2")
                     .arg(certificateDer.size())
                     .arg(openSslReason());
        return QByteArray();
    }

    QByteArray sessionKey(kSessionKeySize, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char *>(sessionKey.data()), kSessionKeySize) != 1) {
        *error = QStringLiteral("no random session key: %1").arg(openSslReason());
        return QByteArray();
    }
    QByteArray packedKey;
    QByteArray encryptedContent;
    const bool sealed = encryptSessionKey(certificate.get(), sessionKey, &packedKey, error)
                        && sm4EcbEncrypt(sessionKey, content, &encryptedContent, error);
    sessionKey.fill('\0');
    if (!sealed)
        return QByteArray();

    ZtEnvelopeData envelope;
    envelope.SetRecCert(certificateDer);
    envelope.SetEncKeyData(packedKey);
    envelope.SetEncContent(encryptedContent);
    const QByteArray built = envelope.build();
    if (built.isEmpty())
        *error = QStringLiteral("the library built no envelope (the host log says why)");
    return built;
}

} // namespace zthost::cli
