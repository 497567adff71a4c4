#include "openssl_envelope.h"

#include "sealer/envelope_sealer.h"

#include <QString>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

namespace {

const QByteArray kEnvelopedDataOid = QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x06\x01\x04\x02\x03");
const QByteArray kDataOid = QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x06\x01\x04\x02\x01");
const QByteArray kSm2EncryptionOid = QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x01\x82\x2D\x03");
const QByteArray kSm4EcbOid = QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x01\x68\x01");
constexpr int kSessionKeyLength = 16;
constexpr int kNestingLimit = 64;

struct CtxFree
{
    void operator()(EVP_PKEY_CTX *ctx) const { EVP_PKEY_CTX_free(ctx); }
    void operator()(EVP_CIPHER_CTX *ctx) const { EVP_CIPHER_CTX_free(ctx); }
    void operator()(X509 *x) const { X509_free(x); }
    void operator()(BIO *bio) const { BIO_free(bio); }
};
template <typename T>
using Owned = std::unique_ptr<T, CtxFree>;

const unsigned char *bytesOf(const QByteArray &array)
{
    return reinterpret_cast<const unsigned char *>(array.constData());
}

Owned<X509> readCertificate(const QByteArray &certificate)
{
    const unsigned char *p = bytesOf(certificate);
    Owned<X509> x509(d2i_X509(nullptr, &p, certificate.size()));
    if (x509 && p == bytesOf(certificate) + certificate.size())
        return x509;
    Owned<BIO> bio(BIO_new_mem_buf(certificate.constData(), certificate.size()));
    return Owned<X509>(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
}

// Takes over what an i2d call allocated. Call as `const int n = i2d_X(x, &der);` first:
// passing the call and `der` as two arguments would leave their order to the compiler.
QByteArray i2dBytes(int length, unsigned char *der)
{
    QByteArray bytes;
    if (length > 0)
        bytes = QByteArray(reinterpret_cast<const char *>(der), length);
    OPENSSL_free(der);
    return bytes;
}

bool parseNodes(const unsigned char *p, long length, int depth, QList<DerNode> *out)
{
    const unsigned char *end = p + length;
    while (p < end) {
        if (depth > kNestingLimit)
            return false;
        const unsigned char *start = p;
        long contentLength = 0;
        int tag = 0;
        int xclass = 0;
        const int flags = ASN1_get_object(&p, &contentLength, &tag, &xclass, end - p);
        if ((flags & 0x80) || flags == 0x21 || tag >= 31 || contentLength > end - p)
            return false;
        DerNode node;
        const bool constructed = flags & V_ASN1_CONSTRUCTED;
        node.identifier = xclass | (constructed ? V_ASN1_CONSTRUCTED : 0) | tag;
        node.content = QByteArray(reinterpret_cast<const char *>(p), int(contentLength));
        node.encoding = QByteArray(reinterpret_cast<const char *>(start), int(p + contentLength - start));
        if (constructed && !parseNodes(p, contentLength, depth + 1, &node.children))
            return false;
        p += contentLength;
        out->append(node);
    }
    return true;
}

} // namespace

QByteArray selfSignedCertificateDer(EVP_PKEY *key, const EVP_MD *digest, const char *commonName)
{
    Owned<X509> x509(X509_new());
    X509_set_version(x509.get(), 2);
    ASN1_INTEGER_set_int64(X509_get_serialNumber(x509.get()), 0x0102030405);
    X509_gmtime_adj(X509_getm_notBefore(x509.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(x509.get()), 365L * 24 * 3600);
    X509_NAME *name = X509_get_subject_name(x509.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char *>(commonName), -1, -1, 0);
    X509_set_issuer_name(x509.get(), name);
    X509_set_pubkey(x509.get(), key);
    if (X509_sign(x509.get(), key, digest) <= 0)
        return QByteArray();
    unsigned char *der = nullptr;
    const int length = i2d_X509(x509.get(), &der);
    return i2dBytes(length, der);
}

Sm2Identity makeSm2Identity(const char *commonName)
{
    Sm2Identity identity;
    identity.key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2"));
    if (!identity.key)
        return identity;
    identity.certificateDer = selfSignedCertificateDer(identity.key.get(), EVP_sm3(), commonName);
    if (identity.certificateDer.isEmpty())
        return identity;

    BIGNUM *x = nullptr;
    BIGNUM *y = nullptr;
    EVP_PKEY_get_bn_param(identity.key.get(), OSSL_PKEY_PARAM_EC_PUB_X, &x);
    EVP_PKEY_get_bn_param(identity.key.get(), OSSL_PKEY_PARAM_EC_PUB_Y, &y);
    identity.publicXY = QByteArray(64, '\0');
    auto *out = reinterpret_cast<unsigned char *>(identity.publicXY.data());
    BN_bn2binpad(x, out, 32);
    BN_bn2binpad(y, out + 32, 32);
    BN_free(x);
    BN_free(y);
    return identity;
}

EvpPkeyPtr publicKeyOfCertificate(const QByteArray &certificate)
{
    Owned<X509> x509 = readCertificate(certificate);
    return EvpPkeyPtr(x509 ? X509_get_pubkey(x509.get()) : nullptr);
}

QByteArray sm2Encrypt(EVP_PKEY *recipient, const QByteArray &plaintext)
{
    Owned<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, recipient, nullptr));
    size_t length = 0;
    if (!ctx || EVP_PKEY_encrypt_init(ctx.get()) <= 0
        || EVP_PKEY_encrypt(ctx.get(), nullptr, &length, bytesOf(plaintext), plaintext.size()) <= 0)
        return QByteArray();
    QByteArray out(int(length), '\0');
    if (EVP_PKEY_encrypt(ctx.get(), reinterpret_cast<unsigned char *>(out.data()), &length,
                         bytesOf(plaintext), plaintext.size()) <= 0)
        return QByteArray();
    // The reported length may be the buffer's rather than the DER's: the DER says its own.
    DerNode root;
    const unsigned char *p = bytesOf(out);
    long contentLength = 0;
    int tag = 0;
    int xclass = 0;
    if (ASN1_get_object(&p, &contentLength, &tag, &xclass, out.size()) & 0x80)
        return QByteArray();
    return out.left(int(p - bytesOf(out) + contentLength));
}

QByteArray sm2Decrypt(EVP_PKEY *key, const QByteArray &ciphertextDer)
{
    Owned<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    size_t length = 0;
    if (!ctx || EVP_PKEY_decrypt_init(ctx.get()) <= 0
        || EVP_PKEY_decrypt(ctx.get(), nullptr, &length, bytesOf(ciphertextDer),
                            ciphertextDer.size()) <= 0)
        return QByteArray();
    QByteArray out(int(length), '\0');
    if (EVP_PKEY_decrypt(ctx.get(), reinterpret_cast<unsigned char *>(out.data()), &length,
                         bytesOf(ciphertextDer), ciphertextDer.size()) <= 0)
        return QByteArray();
    out.resize(int(length));
    return out;
}

bool splitSm2Ciphertext(const QByteArray &der, Sm2CiphertextFields *fields)
{
    DerNode root;
    if (!parseDer(der, &root) || root.identifier != 0x30 || root.children.size() != 4)
        return false;
    fields->x = root.children[0].content;
    fields->y = root.children[1].content;
    fields->hash = root.children[2].content;
    fields->cipher = root.children[3].content;
    return true;
}

QByteArray packedKeyData(const Sm2CiphertextFields &fields)
{
    auto coordinate = [](const QByteArray &integer) {
        const QByteArray last = integer.right(32);
        return QByteArray(32 - last.size(), '\0') + last;
    };
    return coordinate(fields.x) + coordinate(fields.y) + fields.hash + fields.cipher;
}

QByteArray sm2CiphertextDer(const Sm2CiphertextFields &fields)
{
    return derValue(0x30, derValue(0x02, fields.x) + derValue(0x02, fields.y)
                              + derValue(0x04, fields.hash) + derValue(0x04, fields.cipher));
}

namespace {
QByteArray sm4Ecb(const QByteArray &key, const QByteArray &input, int encrypt)
{
    if (key.size() != kSessionKeyLength)
        return QByteArray();
    Owned<EVP_CIPHER_CTX> ctx(EVP_CIPHER_CTX_new());
    EVP_CIPHER *cipher = EVP_CIPHER_fetch(nullptr, "SM4-ECB", nullptr);
    QByteArray out(input.size() + 16, '\0');
    int written = 0;
    int last = 0;
    const bool ok = cipher
        && EVP_CipherInit_ex2(ctx.get(), cipher, bytesOf(key), nullptr, encrypt, nullptr) > 0
        && EVP_CipherUpdate(ctx.get(), reinterpret_cast<unsigned char *>(out.data()), &written,
                            bytesOf(input), input.size()) > 0
        && EVP_CipherFinal_ex(ctx.get(), reinterpret_cast<unsigned char *>(out.data()) + written,
                              &last) > 0;
    EVP_CIPHER_free(cipher);
    if (!ok)
        return QByteArray();
    out.resize(written + last);
    return out;
}
} // namespace

QByteArray sm4EcbEncrypt(const QByteArray &key, const QByteArray &plaintext)
{
    return sm4Ecb(key, plaintext, 1);
}

QByteArray sm4EcbDecrypt(const QByteArray &key, const QByteArray &ciphertext)
{
    return sm4Ecb(key, ciphertext, 0);
}

QByteArray randomBytes(int count)
{
    QByteArray bytes(count, '\0');
    RAND_bytes(reinterpret_cast<unsigned char *>(bytes.data()), count);
    return bytes;
}

QByteArray derValue(int identifier, const QByteArray &content)
{
    const int constructed = (identifier & V_ASN1_CONSTRUCTED) ? 1 : 0;
    const int tag = identifier & 0x1F;
    const int xclass = identifier & 0xC0;
    const int total = ASN1_object_size(constructed, content.size(), tag);
    QByteArray der(total, '\0');
    auto *p = reinterpret_cast<unsigned char *>(der.data());
    ASN1_put_object(&p, constructed, content.size(), tag, xclass);
    std::copy(content.cbegin(), content.cend(), p);
    return der;
}

bool parseDer(const QByteArray &der, DerNode *root)
{
    QList<DerNode> nodes;
    if (der.isEmpty() || !parseNodes(bytesOf(der), der.size(), 0, &nodes) || nodes.size() != 1)
        return false;
    *root = nodes.first();
    return true;
}

QByteArray oidText(const QByteArray &content)
{
    const QByteArray der = derValue(V_ASN1_OBJECT, content);
    const unsigned char *p = bytesOf(der);
    ASN1_OBJECT *object = d2i_ASN1_OBJECT(nullptr, &p, der.size());
    if (!object)
        return QByteArray();
    char text[128] = {};
    OBJ_obj2txt(text, sizeof text, object, 1);
    ASN1_OBJECT_free(object);
    return QByteArray(text);
}

EnvelopeParts::EnvelopeParts()
    : contentType(kEnvelopedDataOid),
      keyAlgorithm(kSm2EncryptionOid),
      dataContentType(kDataOid),
      contentAlgorithm(kSm4EcbOid)
{
}

QByteArray assembleEnvelope(const EnvelopeParts &parts)
{
    QByteArray recipient = derValue(0x02, parts.recipientVersion)
        + derValue(0x30, parts.issuerDer + parts.serialDer)
        + derValue(0x30, derValue(0x06, parts.keyAlgorithm));
    if (parts.withEncryptedKey)
        recipient += derValue(0x04, parts.encryptedKey);
    QByteArray recipients;
    for (int i = 0; i < parts.recipientCount; ++i)
        recipients += derValue(0x30, recipient);

    const QByteArray encryptedContent = parts.primitiveContent
        ? derValue(0x80, parts.encryptedContent)
        : derValue(0xA0, derValue(0x04, parts.encryptedContent));
    const QByteArray contentInfo = derValue(0x06, parts.dataContentType)
        + derValue(0x30, derValue(0x06, parts.contentAlgorithm)) + encryptedContent;

    const QByteArray envelopedData = derValue(0x02, parts.version) + derValue(0x31, recipients)
        + derValue(0x30, contentInfo);
    return derValue(0x30, derValue(0x06, parts.contentType)
                              + derValue(0xA0, derValue(0x30, envelopedData)));
}

bool issuerAndSerialOf(const QByteArray &certificateDer, QByteArray *issuerDer,
                       QByteArray *serialDer)
{
    Owned<X509> x509 = readCertificate(certificateDer);
    if (!x509)
        return false;
    unsigned char *der = nullptr;
    const int issuerLength = i2d_X509_NAME(X509_get_issuer_name(x509.get()), &der);
    *issuerDer = i2dBytes(issuerLength, der);
    der = nullptr;
    const int serialLength = i2d_ASN1_INTEGER(X509_get_serialNumber(x509.get()), &der);
    *serialDer = i2dBytes(serialLength, der);
    return !issuerDer->isEmpty() && !serialDer->isEmpty();
}

QByteArray makeEnvelopeWithOpenSsl(const QByteArray &recipientCertDer, const QByteArray &content,
                                   QByteArray *sessionKey)
{
    const QByteArray key = randomBytes(kSessionKeyLength);
    QString error;
    const QByteArray envelope = zthost::sealEnvelope(recipientCertDer, content, key, &error);
    if (envelope.isEmpty())
        qWarning("makeEnvelopeWithOpenSsl: %s", qPrintable(error));
    else if (sessionKey)
        *sessionKey = key;
    return envelope;
}

QByteArray makeEnvelopeOfNoContent(const QByteArray &recipientCertDer)
{
    EnvelopeParts parts;
    if (!issuerAndSerialOf(recipientCertDer, &parts.issuerDer, &parts.serialDer))
        return QByteArray();
    const QByteArray key = randomBytes(kSessionKeyLength);
    QString error;
    parts.encryptedKey = zthost::sealSessionKey(recipientCertDer, key, &error);
    parts.encryptedContent = sm4EcbEncrypt(key, QByteArray());
    if (parts.encryptedKey.isEmpty()) {
        qWarning("makeEnvelopeOfNoContent: %s", qPrintable(error));
        return QByteArray();
    }
    return assembleEnvelope(parts);
}

QByteArray openEnvelopeWithOpenSsl(const QByteArray &envelopeDer, EVP_PKEY *recipientKey)
{
    DerNode root;
    if (!parseDer(envelopeDer, &root))
        return QByteArray();
    const DerNode *content = root.child(1);
    const DerNode *envelopedData = content ? content->child(0) : nullptr;
    const DerNode *recipients = envelopedData ? envelopedData->child(1) : nullptr;
    const DerNode *recipient = recipients ? recipients->child(0) : nullptr;
    const DerNode *encryptedKey = recipient ? recipient->child(3) : nullptr;
    const DerNode *info = envelopedData ? envelopedData->child(2) : nullptr;
    const DerNode *encrypted = info ? info->child(2) : nullptr;
    const DerNode *segment = encrypted ? encrypted->child(0) : nullptr;
    if (!encryptedKey || !segment)
        return QByteArray();
    const QByteArray key = sm2Decrypt(recipientKey, encryptedKey->content);
    return sm4EcbDecrypt(key, segment->content);
}
