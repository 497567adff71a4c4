// WebZtDecode through the reference host and the software key device, against the work no
// implementation can skip: Base64 in, SM2 for the session key, SM4-ECB for the content,
// Base64 out, done directly with OpenSSL and QByteArray.

#include "decode_world.h"
#include "der_walk.h"
#include "report.h"

#include <QByteArray>
#include <QString>

#include <openssl/evp.h>

#include <map>

namespace {

// Envelope paths: ContentInfo [0] EnvelopedData, then recipientInfos' first encryptedKey, and
// the one OCTET STRING of encryptedContent.
constexpr std::initializer_list<int> kEncryptedKeyPath = {1, 0, 1, 0, 3};
constexpr std::initializer_list<int> kEncryptedContentPath = {1, 0, 2, 2, 0};

struct DecodeCase
{
    QByteArray content;
    QString text;
};

const DecodeCase &decodeCase(int size)
{
    static std::map<int, DecodeCase> cases;
    auto found = cases.find(size);
    if (found == cases.end()) {
        DecodeCase made;
        made.content = patternedContent(size);
        made.text = DecodeWorld::instance().envelopeText(made.content);
        found = cases.emplace(size, std::move(made)).first;
    }
    return found->second;
}

const EVP_CIPHER *sm4Ecb()
{
    static EVP_CIPHER *cipher = EVP_CIPHER_fetch(nullptr, "SM4-ECB", nullptr);
    return cipher;
}

} // namespace

QString decodeDirectly(const QString &text, EVP_PKEY *key)
{
    const QByteArray der = QByteArray::fromBase64(text.toLatin1());
    const auto *bytes = reinterpret_cast<const unsigned char *>(der.constData());
    const unsigned char *wrapped = nullptr;
    long wrappedLength = 0;
    const unsigned char *cipher = nullptr;
    long cipherLength = 0;
    if (!derDescend(bytes, der.size(), kEncryptedKeyPath, &wrapped, &wrappedLength)
        || !derDescend(bytes, der.size(), kEncryptedContentPath, &cipher, &cipherLength))
        return QString();

    unsigned char sessionKey[64];
    std::size_t sessionKeyLength = sizeof sessionKey;
    EVP_PKEY_CTX *sm2 = EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr);
    const bool unwrapped = sm2 && EVP_PKEY_decrypt_init(sm2) == 1
                           && EVP_PKEY_decrypt(sm2, sessionKey, &sessionKeyLength, wrapped,
                                               std::size_t(wrappedLength))
                                  == 1;
    EVP_PKEY_CTX_free(sm2);
    if (!unwrapped || sessionKeyLength != 16)
        return QString();

    QByteArray plaintext(int(cipherLength), Qt::Uninitialized);
    EVP_CIPHER_CTX *sm4 = EVP_CIPHER_CTX_new();
    int written = 0;
    int last = 0;
    auto *out = reinterpret_cast<unsigned char *>(plaintext.data());
    const bool deciphered = EVP_DecryptInit_ex2(sm4, sm4Ecb(), sessionKey, nullptr, nullptr) == 1
                            && EVP_DecryptUpdate(sm4, out, &written, cipher, int(cipherLength)) == 1
                            && EVP_DecryptFinal_ex(sm4, out + written, &last) == 1;
    EVP_CIPHER_CTX_free(sm4);
    if (!deciphered)
        return QString();
    plaintext.resize(written + last);
    return QString::fromLatin1(plaintext.toBase64());
}

const QString &decodeCaseText(int size)
{
    return decodeCase(size).text;
}

void checkDecodeRoad(int size)
{
    const DecodeCase &c = decodeCase(size);
    const QString expected = QString::fromLatin1(c.content.toBase64());
    if (DecodeWorld::instance().decode(c.text) != expected)
        benchFatal(QStringLiteral("WebZtDecode of %1 bytes does not give the content back").arg(size));
    if (decodeDirectly(c.text, DecodeWorld::instance().privateKey()) != expected)
        benchFatal(QStringLiteral("the direct decode of %1 bytes does not give the content back")
                       .arg(size));
}

void registerDecodeBenchmarks(const std::vector<int> &sizes, int repetitions)
{
    for (int size : sizes) {
        checkDecodeRoad(size);
        const double minTime = size >= (1 << 20) ? 0.4 : 0.2;
        for (int r = 0; r < repetitions; ++r) {
            benchRegister("decode/library", size, [size](benchmark::State &state) {
                const QString &text = decodeCase(size).text;
                DecodeWorld &world = DecodeWorld::instance();
                for (auto _ : state)
                    benchmark::DoNotOptimize(world.decode(text));
            })->MinTime(minTime);
            benchRegister("decode/baseline", size, [size](benchmark::State &state) {
                const QString &text = decodeCase(size).text;
                EVP_PKEY *key = DecodeWorld::instance().privateKey();
                for (auto _ : state)
                    benchmark::DoNotOptimize(decodeDirectly(text, key));
            })->MinTime(minTime);
        }
    }
}
