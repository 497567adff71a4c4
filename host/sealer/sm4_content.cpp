#include "sm4_content_p.h"

#include "openssl_handles_p.h"

namespace zthost::sealing {

QByteArray sm4EcbEncrypt(const QByteArray &key, const QByteArray &content, QString *error)
{
    Owned<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new());
    Owned<EVP_CIPHER> cipher(EVP_CIPHER_fetch(nullptr, "SM4-ECB", nullptr));
    // PKCS#7 padding always adds at least one byte and at most one block.
    QByteArray encrypted(content.size() + kSm4BlockSize, '\0');
    auto *out = reinterpret_cast<unsigned char *>(encrypted.data());
    int written = 0;
    int finalWritten = 0;
    if (!context || !cipher || key.size() != kSm4KeySize
        || EVP_EncryptInit_ex2(context.get(), cipher.get(), bytesOf(key), nullptr, nullptr) != 1
        || EVP_CIPHER_CTX_set_padding(context.get(), 1) != 1
        || EVP_EncryptUpdate(context.get(), out, &written, bytesOf(content), content.size()) != 1
        || EVP_EncryptFinal_ex(context.get(), out + written, &finalWritten) != 1) {
        *error = QStringLiteral("SM4-ECB encryption of %1 bytes under a %2-byte key failed: %3")
                     .arg(content.size())
                     .arg(key.size())
                     .arg(openSslReason());
        return QByteArray();
    }
    encrypted.resize(written + finalWritten);
    return encrypted;
}

} // namespace zthost::sealing
