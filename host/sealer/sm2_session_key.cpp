#include "sm2_session_key_p.h"

#include "der_writer_p.h"
#include "openssl_handles_p.h"

namespace zthost::sealing {

namespace {
// A ciphertext has a coordinate with a leading zero octet about once in 128 encryptions, so
// 64 in a row mean something else is wrong.
constexpr int kMaxAttempts = 64;

// OpenSSL's SM2 ciphertext, read back: SEQUENCE { x, y, hash, cipherText }.
namespace CiphertextIndex {
constexpr int kX = 0;
constexpr int kY = 1;
constexpr int kHash = 2;
constexpr int kCipherText = 3;
constexpr int kCount = 4;
} // namespace CiphertextIndex

struct Ciphertext
{
    Owned<BIGNUM> x;
    Owned<BIGNUM> y;
    QByteArray hash;
    QByteArray cipherText;
};

bool encryptOnce(EVP_PKEY *recipient, const QByteArray &sessionKey, QByteArray *der, QString *error)
{
    Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, recipient, nullptr));
    size_t size = 0;
    if (!context || EVP_PKEY_encrypt_init(context.get()) <= 0
        || EVP_PKEY_encrypt(context.get(), nullptr, &size, bytesOf(sessionKey),
                            size_t(sessionKey.size())) <= 0) {
        *error = QStringLiteral("SM2 encryption of the %1-byte session key cannot start: %2")
                     .arg(sessionKey.size())
                     .arg(openSslReason());
        return false;
    }
    der->resize(int(size));
    if (EVP_PKEY_encrypt(context.get(), reinterpret_cast<unsigned char *>(der->data()), &size,
                         bytesOf(sessionKey), size_t(sessionKey.size())) <= 0) {
        *error = QStringLiteral("SM2 encryption of the %1-byte session key failed: %2")
                     .arg(sessionKey.size())
                     .arg(openSslReason());
        return false;
    }
    der->resize(int(size));
    return true;
}

QString elementError(int index, const char *expected)
{
    return QStringLiteral("SM2 ciphertext: element %1 is not %2")
        .arg(index)
        .arg(QLatin1String(expected));
}

// The reported size may be the buffer's rather than the DER's: the DER's own length decides
// where it ends, and nothing is read past `der`.
bool readCiphertext(const QByteArray &der, Ciphertext *ciphertext, QString *error)
{
    const unsigned char *p = bytesOf(der);
    Owned<ASN1_SEQUENCE_ANY> elements(d2i_ASN1_SEQUENCE_ANY(nullptr, &p, der.size()));
    if (!elements) {
        *error = QStringLiteral("SM2 ciphertext (%1 bytes) does not parse: %2")
                     .arg(der.size())
                     .arg(openSslReason());
        return false;
    }
    const int count = sk_ASN1_TYPE_num(elements.get());
    if (count != CiphertextIndex::kCount) {
        *error = QStringLiteral("SM2 ciphertext has %1 elements, expected %2")
                     .arg(count)
                     .arg(CiphertextIndex::kCount);
        return false;
    }
    const ASN1_TYPE *x = sk_ASN1_TYPE_value(elements.get(), CiphertextIndex::kX);
    const ASN1_TYPE *y = sk_ASN1_TYPE_value(elements.get(), CiphertextIndex::kY);
    const ASN1_TYPE *hash = sk_ASN1_TYPE_value(elements.get(), CiphertextIndex::kHash);
    const ASN1_TYPE *cipher = sk_ASN1_TYPE_value(elements.get(), CiphertextIndex::kCipherText);
    if (x->type != V_ASN1_INTEGER || y->type != V_ASN1_INTEGER) {
        *error = elementError(x->type != V_ASN1_INTEGER ? CiphertextIndex::kX : CiphertextIndex::kY,
                              "an INTEGER");
        return false;
    }
    if (hash->type != V_ASN1_OCTET_STRING || cipher->type != V_ASN1_OCTET_STRING) {
        *error = elementError(hash->type != V_ASN1_OCTET_STRING ? CiphertextIndex::kHash
                                                                : CiphertextIndex::kCipherText,
                              "an OCTET STRING");
        return false;
    }
    ciphertext->x.reset(ASN1_INTEGER_to_BN(x->value.integer, nullptr));
    ciphertext->y.reset(ASN1_INTEGER_to_BN(y->value.integer, nullptr));
    if (!ciphertext->x || !ciphertext->y || BN_is_negative(ciphertext->x.get())
        || BN_is_negative(ciphertext->y.get())) {
        *error = QStringLiteral("SM2 ciphertext: a coordinate is no positive INTEGER");
        return false;
    }
    const ASN1_STRING *hashString = hash->value.octet_string;
    const ASN1_STRING *cipherString = cipher->value.octet_string;
    ciphertext->hash = QByteArray(reinterpret_cast<const char *>(ASN1_STRING_get0_data(hashString)),
                                  ASN1_STRING_length(hashString));
    ciphertext->cipherText =
        QByteArray(reinterpret_cast<const char *>(ASN1_STRING_get0_data(cipherString)),
                   ASN1_STRING_length(cipherString));
    return true;
}

bool hasWholeCoordinates(const Ciphertext &ciphertext)
{
    return BN_num_bytes(ciphertext.x.get()) == Sm2Sizes::kCoordinate
           && BN_num_bytes(ciphertext.y.get()) == Sm2Sizes::kCoordinate;
}

bool checkSizes(const Ciphertext &ciphertext, QString *error)
{
    struct Field
    {
        const char *name;
        qsizetype size; // Qt's size type on Qt 6; on Qt 5 it holds the int unchanged
        int expected;
    };
    const Field fields[] = {
        {"hash", ciphertext.hash.size(), Sm2Sizes::kHash},
        {"cipherText", ciphertext.cipherText.size(), Sm2Sizes::kSessionKey},
    };
    for (const Field &field : fields) {
        if (field.size != field.expected) {
            *error = QStringLiteral("SM2 ciphertext: %1 is %2 bytes, expected %3")
                         .arg(QLatin1String(field.name))
                         .arg(field.size)
                         .arg(field.expected);
            return false;
        }
    }
    return true;
}

QByteArray cipherStructure(const Ciphertext &ciphertext, QString *error)
{
    const QByteArray x = der::integer(ciphertext.x.get());
    const QByteArray y = der::integer(ciphertext.y.get());
    const QByteArray hash = der::octetString(ciphertext.hash);
    const QByteArray cipherText = der::octetString(ciphertext.cipherText);
    const bool written = !x.isEmpty() && !y.isEmpty() && !hash.isEmpty() && !cipherText.isEmpty();
    const QByteArray structure =
        written ? der::constructed(der::kSequence, x + y + hash + cipherText) : QByteArray();
    if (structure.isEmpty())
        *error = QStringLiteral("writing the SM2 cipher structure's DER failed: %1")
                     .arg(openSslReason());
    return structure;
}
} // namespace

QByteArray sm2SessionKey(EVP_PKEY *recipient, const QByteArray &sessionKey, QString *error)
{
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        QByteArray der;
        Ciphertext ciphertext;
        if (!encryptOnce(recipient, sessionKey, &der, error)
            || !readCiphertext(der, &ciphertext, error))
            return QByteArray();
        if (!hasWholeCoordinates(ciphertext))
            continue;
        if (!checkSizes(ciphertext, error))
            return QByteArray();
        return cipherStructure(ciphertext, error);
    }
    *error = QStringLiteral("SM2 encryption gave a coordinate shorter than %1 bytes %2 times in "
                            "a row")
                 .arg(Sm2Sizes::kCoordinate)
                 .arg(kMaxAttempts);
    return QByteArray();
}

} // namespace zthost::sealing
