// The ASN.1 component against OpenSSL in both directions: what the component builds, OpenSSL
// decodes element by element; what OpenSSL encodes, the component opens, walks and rebuilds.

#include "asn_test_support.h"
#include "test_certificates.h"

#include "asn/asn_block.h"
#include "asn/asn_document.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/conf.h>
#include <openssl/x509.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace asntest;
using zthost::AsnBlock;
using zthost::AsnDocument;

namespace {

// OID 1.2.156.10197.1.301 (the SM2 curve), content octets.
const char kSm2CurveOid[] = "2a811ccf5501822d";

struct SequenceFree {
    void operator()(ASN1_SEQUENCE_ANY *sequence) const
    {
        sk_ASN1_TYPE_pop_free(sequence, ASN1_TYPE_free);
    }
};
struct TypeFree {
    void operator()(ASN1_TYPE *type) const { ASN1_TYPE_free(type); }
};
struct BignumFree {
    void operator()(BIGNUM *number) const { BN_free(number); }
};

QByteArray stringBytes(const ASN1_STRING *string)
{
    return QByteArray(reinterpret_cast<const char *>(ASN1_STRING_get0_data(string)),
                      ASN1_STRING_length(string));
}

QByteArray topBitBytes(int count)
{
    QByteArray out;
    for (int i = 0; i < count; ++i)
        out.append(static_cast<char>(0x80 + i));
    return out;
}

TEST(HostAsnInterop, builtDerDecodesWithOpenSslElementByElement)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    const QByteArray magnitude = topBitBytes(32);
    ASSERT_TRUE(asBlock(document.addSample(0x02))->setData(magnitude));
    ASSERT_TRUE(asBlock(document.addSample(0x04))->setData("hello"));
    ASSERT_TRUE(asBlock(document.addSample(0x06))->setData(bytes(kSm2CurveOid)));
    AsnBlock *explicitZero = asBlock(document.addStruct(0xA0));
    ASSERT_TRUE(asBlock(explicitZero->addSample(0x02))->setData(bytes("07")));
    asBlock(document.addStruct(0x31))->addSample(0x05);
    ASSERT_TRUE(asBlock(document.addSample(0x81))->setData("ab"));
    const QByteArray der = document.build();

    const auto *cursor = reinterpret_cast<const unsigned char *>(der.constData());
    std::unique_ptr<ASN1_SEQUENCE_ANY, SequenceFree> sequence(
        d2i_ASN1_SEQUENCE_ANY(nullptr, &cursor, der.size()));
    ASSERT_TRUE(sequence);
    EXPECT_EQ(cursor, reinterpret_cast<const unsigned char *>(der.constData()) + der.size());
    ASSERT_EQ(sk_ASN1_TYPE_num(sequence.get()), 6);

    const ASN1_TYPE *integer = sk_ASN1_TYPE_value(sequence.get(), 0);
    ASSERT_EQ(ASN1_TYPE_get(integer), V_ASN1_INTEGER) << "positive, thanks to the leading zero";
    std::unique_ptr<BIGNUM, BignumFree> decoded(ASN1_INTEGER_to_BN(integer->value.integer, nullptr));
    std::unique_ptr<BIGNUM, BignumFree> expected(
        BN_bin2bn(reinterpret_cast<const unsigned char *>(magnitude.constData()), 32, nullptr));
    EXPECT_EQ(BN_cmp(decoded.get(), expected.get()), 0);

    const ASN1_TYPE *octets = sk_ASN1_TYPE_value(sequence.get(), 1);
    ASSERT_EQ(ASN1_TYPE_get(octets), V_ASN1_OCTET_STRING);
    EXPECT_EQ(stringBytes(octets->value.octet_string), "hello");

    const ASN1_TYPE *oid = sk_ASN1_TYPE_value(sequence.get(), 2);
    ASSERT_EQ(ASN1_TYPE_get(oid), V_ASN1_OBJECT);
    char oidText[64] = {};
    OBJ_obj2txt(oidText, sizeof oidText, oid->value.object, 1);
    EXPECT_STREQ(oidText, "1.2.156.10197.1.301");

    // OpenSSL keeps values it has no universal type for as their whole encoding.
    const ASN1_TYPE *context = sk_ASN1_TYPE_value(sequence.get(), 3);
    ASSERT_EQ(ASN1_TYPE_get(context), V_ASN1_OTHER);
    EXPECT_EQ(hex(stringBytes(context->value.asn1_string)), "a003020107");

    const ASN1_TYPE *set = sk_ASN1_TYPE_value(sequence.get(), 4);
    ASSERT_EQ(ASN1_TYPE_get(set), V_ASN1_SET);
    EXPECT_EQ(hex(stringBytes(set->value.set)), "31020500");

    const ASN1_TYPE *implicitOne = sk_ASN1_TYPE_value(sequence.get(), 5);
    ASSERT_EQ(ASN1_TYPE_get(implicitOne), V_ASN1_OTHER);
    EXPECT_EQ(hex(stringBytes(implicitOne->value.asn1_string)), "81026162");
}

TEST(HostAsnInterop, builtDerHasTheHeadersOpenSslReads)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    ASSERT_TRUE(asBlock(document.addSample(0x04))->setData(QByteArray(1000, '\x33')));
    const QByteArray der = document.build();

    const auto *begin = reinterpret_cast<const unsigned char *>(der.constData());
    const unsigned char *cursor = begin;
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    ASSERT_EQ(ASN1_get_object(&cursor, &length, &tag, &tagClass, der.size()), V_ASN1_CONSTRUCTED);
    EXPECT_EQ(tag, V_ASN1_SEQUENCE);
    EXPECT_EQ(cursor - begin, 4);
    EXPECT_EQ(length, 1004);
    ASSERT_EQ(ASN1_get_object(&cursor, &length, &tag, &tagClass, length), 0);
    EXPECT_EQ(tag, V_ASN1_OCTET_STRING);
    EXPECT_EQ(length, 1000);
    EXPECT_EQ(cursor - begin, 8);
    EXPECT_EQ(der.size(), 1008);
}

class HostAsnCertificate : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_key = certtest::ecKey("prime256v1").release();
        s_certificate = certtest::certificateFor(s_key).release();
    }
    static void TearDownTestSuite()
    {
        X509_free(s_certificate);
        EVP_PKEY_free(s_key);
        s_certificate = nullptr;
        s_key = nullptr;
    }

    static EVP_PKEY *s_key;
    static X509 *s_certificate;
};

EVP_PKEY *HostAsnCertificate::s_key = nullptr;
X509 *HostAsnCertificate::s_certificate = nullptr;

TEST_F(HostAsnCertificate, opensWalksAndRebuildsByteForByte)
{
    ASSERT_NE(s_certificate, nullptr);
    const QByteArray der = certtest::der(s_certificate);
    AsnDocument document;
    ASSERT_TRUE(document.open(der));
    EXPECT_TRUE(document.checkTag(0x30));

    AsnBlock *toBeSigned = asBlock(document.getChild(0, 0x30));
    AsnBlock *algorithm = asBlock(document.getChild(1, 0x30));
    AsnBlock *signature = asBlock(document.getChild(2, 0x03));
    ASSERT_NE(toBeSigned, nullptr);
    ASSERT_NE(algorithm, nullptr);
    ASSERT_NE(signature, nullptr);
    EXPECT_EQ(document.getChild(3, 0x30), nullptr);

    AsnBlock *version = asBlock(toBeSigned->getChild(0, 0xA0));
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(hex(version->toByteArray()), "020102");
    AsnBlock *serial = asBlock(toBeSigned->getChild(1, 0x02));
    ASSERT_NE(serial, nullptr);
    EXPECT_EQ(hex(serial->toByteArray()), "1234");

    const ASN1_BIT_STRING *signatureBits = nullptr;
    const X509_ALGOR *signatureAlgorithm = nullptr;
    X509_get0_signature(&signatureBits, &signatureAlgorithm, s_certificate);
    EXPECT_EQ(hex(signature->toByteArray()), "00" + hex(stringBytes(signatureBits)));

    unsigned char *algorithmDer = nullptr;
    const int algorithmLength = i2d_X509_ALGOR(signatureAlgorithm, &algorithmDer);
    EXPECT_EQ(hex(algorithm->build()),
              hex(QByteArray(reinterpret_cast<const char *>(algorithmDer), algorithmLength)));
    OPENSSL_free(algorithmDer);

    unsigned char *toBeSignedDer = nullptr;
    const int toBeSignedLength = i2d_re_X509_tbs(s_certificate, &toBeSignedDer);
    EXPECT_EQ(hex(toBeSigned->build()),
              hex(QByteArray(reinterpret_cast<const char *>(toBeSignedDer), toBeSignedLength)));
    OPENSSL_free(toBeSignedDer);

    EXPECT_EQ(hex(document.build()), hex(der));
}

TEST_F(HostAsnCertificate, changedSerialStillDecodesWithOpenSsl)
{
    ASSERT_NE(s_certificate, nullptr);
    AsnDocument document;
    ASSERT_TRUE(document.open(certtest::der(s_certificate)));
    AsnBlock *serial = asBlock(asBlock(document.getChild(0, 0x30))->getChild(1, 0x02));
    ASSERT_NE(serial, nullptr);
    ASSERT_TRUE(serial->setData(bytes("fedcba9876543210ff")));
    const QByteArray changed = document.build();

    const auto *cursor = reinterpret_cast<const unsigned char *>(changed.constData());
    certtest::Certificate decoded(d2i_X509(nullptr, &cursor, changed.size()));
    ASSERT_TRUE(decoded);
    const ASN1_INTEGER *decodedSerial = X509_get0_serialNumber(decoded.get());
    EXPECT_EQ(ASN1_STRING_type(decodedSerial), V_ASN1_INTEGER) << "positive";
    std::unique_ptr<BIGNUM, BignumFree> number(ASN1_INTEGER_to_BN(decodedSerial, nullptr));
    char *text = BN_bn2hex(number.get());
    EXPECT_STREQ(text, "FEDCBA9876543210FF");
    OPENSSL_free(text);
}

TEST(HostAsnInterop, generatedDerOpensWalksAndRebuilds)
{
    // Each line exercises one kind of value: top-bit INTEGER, OCTET STRING, OID, EXPLICIT [0],
    // IMPLICIT [1] primitive, SET, BOOLEAN, a UTF8String longer than 127 bytes.
    const std::string config = "[value]\n"
                               "a = INTEGER:0x80FF\n"
                               "b = OCTETSTRING:hello\n"
                               "c = OID:1.2.156.10197.1.301\n"
                               "d = EXPLICIT:0,INTEGER:5\n"
                               "e = IMPLICIT:1,OCTETSTRING:xy\n"
                               "f = SET:members\n"
                               "g = BOOLEAN:TRUE\n"
                               "h = UTF8String:" + std::string(130, 'u') + "\n"
                               "[members]\n"
                               "n = NULL\n";
    std::unique_ptr<BIO, certtest::BioFree> bio(
        BIO_new_mem_buf(config.data(), static_cast<int>(config.size())));
    CONF *conf = NCONF_new(nullptr);
    ASSERT_EQ(NCONF_load_bio(conf, bio.get(), nullptr), 1);
    std::unique_ptr<ASN1_TYPE, TypeFree> generated(ASN1_generate_nconf("SEQUENCE:value", conf));
    NCONF_free(conf);
    ASSERT_TRUE(generated);
    unsigned char *out = nullptr;
    const int length = i2d_ASN1_TYPE(generated.get(), &out);
    ASSERT_GT(length, 0);
    const QByteArray der(reinterpret_cast<const char *>(out), length);
    OPENSSL_free(out);

    AsnDocument document;
    ASSERT_TRUE(document.open(der));
    ASSERT_TRUE(document.checkTag(0x30));
    auto content = [&](int index, int tag) {
        AsnBlock *block = asBlock(document.getChild(index, tag));
        return block != nullptr ? hex(block->toByteArray()) : std::string("missing");
    };
    EXPECT_EQ(content(0, 0x02), "0080ff");
    EXPECT_EQ(content(1, 0x04), "68656c6c6f");
    EXPECT_EQ(content(2, 0x06), kSm2CurveOid);
    EXPECT_EQ(content(3, 0xA0), "020105");
    EXPECT_EQ(content(4, 0x81), "7879");
    EXPECT_EQ(content(5, 0x31), "0500");
    EXPECT_EQ(content(6, 0x01), "ff");
    EXPECT_EQ(content(7, 0x0C), hex(QByteArray(130, 'u')));
    EXPECT_EQ(content(8, 0x05), "missing");

    AsnBlock *explicitZero = asBlock(document.getChild(3, 0xA0));
    ASSERT_NE(explicitZero, nullptr);
    AsnBlock *five = asBlock(explicitZero->getChild(0, 0x02));
    ASSERT_NE(five, nullptr);
    EXPECT_EQ(hex(five->build()), "020105");
    AsnBlock *null = asBlock(asBlock(document.getChild(5, 0x31))->getChild(0, 0x05));
    ASSERT_NE(null, nullptr);
    EXPECT_TRUE(null->toByteArray().isEmpty());

    EXPECT_EQ(hex(document.build()), hex(der));
}

} // namespace
