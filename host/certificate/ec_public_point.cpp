// This file reads untrusted bytes: the public point a certificate carries.
#include "ec_public_point_p.h"

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>

#include <memory>

namespace zthost {
namespace {

constexpr int kCurveBits = 256;
constexpr int kCoordinateSize = kCurveBits / 8;

// The SM2 curve's name among OpenSSL's groups; its OID doubles as the SM2 algorithm identifier.
const char kSm2Group[] = "SM2";

struct BignumFree {
    void operator()(BIGNUM *number) const { BN_free(number); }
};
struct KeyFree {
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
struct KeyContextFree {
    void operator()(EVP_PKEY_CTX *context) const { EVP_PKEY_CTX_free(context); }
};
using Bignum = std::unique_ptr<BIGNUM, BignumFree>;
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, KeyContextFree>;

Bignum coordinate(const EVP_PKEY *key, const char *name)
{
    BIGNUM *number = nullptr;
    if (EVP_PKEY_get_bn_param(key, name, &number) != 1)
        return Bignum();
    return Bignum(number);
}

QByteArray coordinatesOf(const EVP_PKEY *key, QString *error)
{
    if (!EVP_PKEY_is_a(key, "EC") && !EVP_PKEY_is_a(key, "SM2")) {
        *error = QStringLiteral("the public key is %1, not an EC key")
                     .arg(QString::fromLatin1(EVP_PKEY_get0_type_name(key)));
        return QByteArray();
    }
    const int bits = EVP_PKEY_get_bits(key);
    if (bits != kCurveBits) {
        *error = QStringLiteral("the EC key lies on a %1-bit curve, expected %2 bits")
                     .arg(bits).arg(kCurveBits);
        return QByteArray();
    }
    const Bignum x = coordinate(key, OSSL_PKEY_PARAM_EC_PUB_X);
    const Bignum y = coordinate(key, OSSL_PKEY_PARAM_EC_PUB_Y);
    if (!x || !y) {
        *error = QStringLiteral("the EC key's point coordinates cannot be read");
        return QByteArray();
    }
    QByteArray point(2 * kCoordinateSize, '\0');
    auto *out = reinterpret_cast<unsigned char *>(point.data());
    if (BN_bn2binpad(x.get(), out, kCoordinateSize) != kCoordinateSize
        || BN_bn2binpad(y.get(), out + kCoordinateSize, kCoordinateSize) != kCoordinateSize) {
        *error = QStringLiteral("a coordinate of the EC point is longer than %1 bytes")
                     .arg(kCoordinateSize);
        return QByteArray();
    }
    return point;
}

// OpenSSL decodes an SM2-labelled key only when the curve is also named in the parameters;
// issuers that leave them out mean the SM2 curve all the same.
Key sm2KeyFromPoint(const X509 *certificate)
{
    ASN1_OBJECT *algorithm = nullptr;
    const unsigned char *point = nullptr;
    int pointLength = 0;
    if (X509_PUBKEY_get0_param(&algorithm, &point, &pointLength, nullptr,
                               X509_get_X509_PUBKEY(certificate)) != 1
        || OBJ_obj2nid(algorithm) != NID_sm2 || point == nullptr || pointLength <= 0) {
        return Key();
    }
    KeyContext context(EVP_PKEY_CTX_new_from_name(nullptr, kSm2Group, nullptr));
    if (!context || EVP_PKEY_fromdata_init(context.get()) != 1)
        return Key();
    // OSSL_PARAM takes non-const pointers; EVP_PKEY_fromdata only reads them.
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME,
                                         const_cast<char *>(kSm2Group), 0),
        OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY,
                                          const_cast<unsigned char *>(point), pointLength),
        OSSL_PARAM_construct_end(),
    };
    EVP_PKEY *key = nullptr;
    if (EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params) != 1)
        return Key();
    return Key(key);
}

} // namespace

QByteArray ecPublicPoint(const X509 *certificate, QString *error)
{
    // Decoding failures queue OpenSSL errors that are no concern of the caller's.
    ERR_set_mark();
    QByteArray point;
    if (const EVP_PKEY *key = X509_get0_pubkey(certificate)) {
        point = coordinatesOf(key, error);
    } else if (const Key sm2 = sm2KeyFromPoint(certificate)) {
        point = coordinatesOf(sm2.get(), error);
    } else {
        *error = QStringLiteral("the certificate's public key cannot be decoded");
    }
    ERR_pop_to_mark();
    return point;
}

} // namespace zthost
