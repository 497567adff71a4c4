#include "der_writer_p.h"

#include "openssl_handles_p.h"

#include <openssl/objects.h>

#include <algorithm>

namespace zthost::sealing::der {

namespace {
// The parts of an identifier octet ASN1_put_object takes apart.
constexpr int kConstructedBit = 0x20;
constexpr int kClassBits = 0xC0;
constexpr int kTagBits = 0x1F;
// ASN1_object_size's answer when the value would not fit an int.
constexpr int kTooLong = -1;
// OBJ_txt2obj reads dotted numbers only, never a name, when told so.
constexpr int kDottedOnly = 1;
} // namespace

QByteArray constructed(int identifier, const QByteArray &content)
{
    const int tag = identifier & kTagBits;
    const int total = ASN1_object_size(1, content.size(), tag);
    if (total == kTooLong)
        return QByteArray();
    QByteArray value(total, '\0');
    auto *p = reinterpret_cast<unsigned char *>(value.data());
    ASN1_put_object(&p, identifier & kConstructedBit ? 1 : 0, content.size(), tag,
                    identifier & kClassBits);
    std::copy(content.cbegin(), content.cend(), p);
    return value;
}

QByteArray octetString(const QByteArray &content)
{
    Owned<ASN1_STRING> string(ASN1_OCTET_STRING_new());
    if (!string || !ASN1_OCTET_STRING_set(string.get(), bytesOf(content), content.size()))
        return QByteArray();
    unsigned char *der = nullptr;
    const int length = i2d_ASN1_OCTET_STRING(string.get(), &der);
    return takeI2d(length, der);
}

QByteArray integer(const BIGNUM *value)
{
    Owned<ASN1_STRING> asn1(BN_to_ASN1_INTEGER(value, nullptr));
    if (!asn1)
        return QByteArray();
    unsigned char *der = nullptr;
    const int length = i2d_ASN1_INTEGER(asn1.get(), &der);
    return takeI2d(length, der);
}

QByteArray integer(unsigned long value)
{
    Owned<BIGNUM> number(BN_new());
    if (!number || !BN_set_word(number.get(), value))
        return QByteArray();
    return integer(number.get());
}

QByteArray objectIdentifier(const char *dotted)
{
    Owned<ASN1_OBJECT> object(OBJ_txt2obj(dotted, kDottedOnly));
    if (!object)
        return QByteArray();
    unsigned char *der = nullptr;
    const int length = i2d_ASN1_OBJECT(object.get(), &der);
    return takeI2d(length, der);
}

} // namespace zthost::sealing::der
