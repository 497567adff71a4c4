// The certificate component: one certificate in DER or PEM, and the X‖Y of its SM2 (or other
// 256-bit EC) public key exactly as OpenSSL sees the key.

#include "test_certificates.h"

#include "certificate/certificate_component.h"

#include <QMetaMethod>
#include <QStringList>

#include <openssl/core_names.h>
#include <openssl/objects.h>

#include <gtest/gtest.h>

#include <string>

using certtest::Certificate;
using certtest::Key;
using zthost::CertificateComponent;

namespace {

std::string hex(const QByteArray &bytes)
{
    return bytes.toHex().toStdString();
}

// X‖Y as OpenSSL itself encodes the key's point: 04 X Y, uncompressed.
QByteArray opensslCoordinates(const EVP_PKEY *key)
{
    unsigned char point[65] = {};
    size_t length = 0;
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point, sizeof point, &length)
            != 1
        || length != sizeof point || point[0] != 0x04) {
        return QByteArray();
    }
    return QByteArray(reinterpret_cast<const char *>(point + 1), 64);
}

std::string algorithmOf(const X509 *certificate)
{
    ASN1_OBJECT *algorithm = nullptr;
    const void *parameter = nullptr;
    int parameterType = 0;
    X509_ALGOR *algor = nullptr;
    X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, &algor, X509_get_X509_PUBKEY(certificate));
    X509_ALGOR_get0(nullptr, &parameterType, &parameter, algor);
    char text[64] = {};
    OBJ_obj2txt(text, sizeof text, algorithm, 1);
    std::string described = text;
    if (parameterType == V_ASN1_OBJECT) {
        OBJ_obj2txt(text, sizeof text, static_cast<const ASN1_OBJECT *>(parameter), 1);
        described += std::string(" ") + text;
    }
    return described;
}

// Relabels the certificate's key with the SM2 algorithm identifier, the way OpenSSL names its
// own SM2 keys, with or without the curve named as parameter, and signs it again.
Certificate relabelledAsSm2(EVP_PKEY *key, bool withCurve)
{
    Certificate certificate = certtest::certificateFor(key);
    unsigned char point[65] = {};
    size_t length = 0;
    EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point, sizeof point, &length);
    unsigned char *copy = static_cast<unsigned char *>(OPENSSL_memdup(point, length));
    X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(certificate.get()), OBJ_nid2obj(NID_sm2),
                           withCurve ? V_ASN1_OBJECT : V_ASN1_UNDEF,
                           withCurve ? OBJ_nid2obj(NID_sm2) : nullptr, copy,
                           static_cast<int>(length));
    if (X509_sign(certificate.get(), key, EVP_sm3()) <= 0)
        return Certificate();
    return certificate;
}

class HostCertificate : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_sm2 = certtest::sm2Key().release();
        s_certificate = certtest::certificateFor(s_sm2).release();
    }
    static void TearDownTestSuite()
    {
        X509_free(s_certificate);
        EVP_PKEY_free(s_sm2);
        s_certificate = nullptr;
        s_sm2 = nullptr;
    }

    void SetUp() override
    {
        ASSERT_NE(s_certificate, nullptr);
        m_expected = opensslCoordinates(s_sm2);
        ASSERT_EQ(m_expected.size(), 64);
    }

    static EVP_PKEY *s_sm2;
    static X509 *s_certificate;
    QByteArray m_expected;
};

EVP_PKEY *HostCertificate::s_sm2 = nullptr;
X509 *HostCertificate::s_certificate = nullptr;

TEST(HostCertificateMethods, methodsAreDeclaredOnceWithTheHostTypes)
{
    QStringList signatures;
    const QMetaObject &meta = CertificateComponent::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        signatures << QString::fromLatin1(meta.method(i).typeName() + QByteArray(" ")
                                          + meta.method(i).methodSignature());
    EXPECT_EQ(signatures, QStringList({"bool open(QByteArray)", "QByteArray getPublicKeyData()"}));
}

TEST_F(HostCertificate, sm2CertificateIsLabelledTheWayAuthoritiesIssueIt)
{
    EXPECT_EQ(algorithmOf(s_certificate), "1.2.840.10045.2.1 1.2.156.10197.1.301")
        << "id-ecPublicKey with the SM2 curve; the next tests rely on it";
}

TEST_F(HostCertificate, derCertificateGivesTheKeysCoordinates)
{
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::der(s_certificate)));
    EXPECT_EQ(hex(component.getPublicKeyData()), hex(m_expected));
}

TEST_F(HostCertificate, pemCertificateGivesTheKeysCoordinates)
{
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::pem(s_certificate)));
    EXPECT_EQ(hex(component.getPublicKeyData()), hex(m_expected));
}

TEST_F(HostCertificate, textAroundThePemBlockIsIgnored)
{
    CertificateComponent component;
    const QByteArray text = "subject=CN = host test\n" + certtest::pem(s_certificate) + "\n\n";
    ASSERT_TRUE(component.open(text));
    EXPECT_EQ(hex(component.getPublicKeyData()), hex(m_expected));
}

TEST_F(HostCertificate, twoPemCertificatesAreRefused)
{
    CertificateComponent component;
    const QByteArray one = certtest::pem(s_certificate);
    EXPECT_FALSE(component.open(one + one));
    EXPECT_EQ(component.errorString(), "the PEM text holds more than one certificate");
    EXPECT_TRUE(component.getPublicKeyData().isEmpty());
}

TEST_F(HostCertificate, sm2AlgorithmIdentifierWithTheCurveGivesTheCoordinates)
{
    Certificate relabelled = relabelledAsSm2(s_sm2, true);
    ASSERT_TRUE(relabelled);
    ASSERT_EQ(algorithmOf(relabelled.get()), "1.2.156.10197.1.301 1.2.156.10197.1.301");
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::der(relabelled.get())));
    EXPECT_EQ(hex(component.getPublicKeyData()), hex(m_expected));
}

TEST_F(HostCertificate, sm2AlgorithmIdentifierWithoutParametersGivesTheCoordinates)
{
    Certificate relabelled = relabelledAsSm2(s_sm2, false);
    ASSERT_TRUE(relabelled);
    ASSERT_EQ(algorithmOf(relabelled.get()), "1.2.156.10197.1.301");
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::der(relabelled.get())));
    EXPECT_EQ(hex(component.getPublicKeyData()), hex(m_expected));
}

TEST_F(HostCertificate, sm2PointOffTheCurveGivesNoKeyData)
{
    // The SM2 label without parameters is read from the raw point, which must lie on the curve.
    Certificate relabelled = relabelledAsSm2(s_sm2, false);
    ASSERT_TRUE(relabelled);
    QByteArray der = certtest::der(relabelled.get());
    const int at = der.indexOf(QByteArray::fromRawData(m_expected.constData(), 64));
    ASSERT_GT(at, 0);
    der[at + 63] = static_cast<char>(der[at + 63] ^ 0x01);
    CertificateComponent component;
    ASSERT_TRUE(component.open(der));
    EXPECT_TRUE(component.getPublicKeyData().isEmpty());
    EXPECT_EQ(component.errorString(), "the certificate's public key cannot be decoded");
}

TEST(HostCertificateKeys, otherTwoHundredFiftySixBitCurveGivesItsCoordinates)
{
    Key key = certtest::ecKey("prime256v1");
    Certificate certificate = certtest::certificateFor(key.get());
    ASSERT_TRUE(certificate);
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::der(certificate.get())));
    EXPECT_EQ(hex(component.getPublicKeyData()), hex(opensslCoordinates(key.get())));
}

TEST(HostCertificateKeys, largerCurveGivesNoKeyData)
{
    Key key = certtest::ecKey("secp384r1");
    Certificate certificate = certtest::certificateFor(key.get());
    ASSERT_TRUE(certificate);
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::der(certificate.get())));
    EXPECT_TRUE(component.getPublicKeyData().isEmpty());
    EXPECT_EQ(component.errorString(), "the EC key lies on a 384-bit curve, expected 256 bits");
}

TEST(HostCertificateKeys, rsaCertificateGivesNoKeyData)
{
    Key key = certtest::rsaKey();
    Certificate certificate = certtest::certificateFor(key.get());
    ASSERT_TRUE(certificate);
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::der(certificate.get())));
    EXPECT_TRUE(component.getPublicKeyData().isEmpty());
    EXPECT_EQ(component.errorString(), "the public key is RSA, not an EC key");
}

TEST(HostCertificateKeys, noKeyDataBeforeAnOpen)
{
    CertificateComponent component;
    EXPECT_TRUE(component.getPublicKeyData().isEmpty());
    EXPECT_EQ(component.errorString(), "no certificate is open");
}

TEST_F(HostCertificate, inputsThatAreNotOneCertificateAreRefused)
{
    const QByteArray der = certtest::der(s_certificate);
    const QByteArray pem = certtest::pem(s_certificate);
    struct Row {
        const char *reason;
        QByteArray input;
    };
    const Row rows[] = {
        {"empty", QByteArray()},
        {"text", QByteArray("not a certificate")},
        {"random-looking bytes", QByteArray::fromHex("8badf00ddeadbeef0102030405")},
        {"DER without its last byte", der.left(der.size() - 1)},
        {"DER cut in half", der.left(der.size() / 2)},
        {"DER header only", der.left(4)},
        {"DER with a trailing byte", der + QByteArray(1, '\0')},
        {"DER followed by itself", der + der},
        {"a DER SEQUENCE that is no certificate", QByteArray::fromHex("3003020101")},
        {"PEM without its end line", pem.left(pem.indexOf("-----END"))},
        {"PEM with its base64 cut", pem.left(pem.size() / 2) + "\n-----END CERTIFICATE-----\n"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        CertificateComponent component;
        EXPECT_FALSE(component.open(row.input));
        EXPECT_FALSE(component.errorString().isEmpty());
        EXPECT_TRUE(component.getPublicKeyData().isEmpty());
    }
}

TEST_F(HostCertificate, trailingByteIsNamedInTheReason)
{
    CertificateComponent component;
    EXPECT_FALSE(component.open(certtest::der(s_certificate) + QByteArray(1, '\0')));
    EXPECT_EQ(component.errorString(), "1 bytes follow the DER certificate");
}

TEST_F(HostCertificate, failedOpenForgetsTheEarlierCertificate)
{
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::der(s_certificate)));
    ASSERT_EQ(component.getPublicKeyData().size(), 64);
    EXPECT_FALSE(component.open(QByteArray("garbage")));
    EXPECT_TRUE(component.getPublicKeyData().isEmpty());
    EXPECT_EQ(component.errorString(), "no certificate is open");
}

TEST_F(HostCertificate, laterOpenReplacesTheEarlierCertificate)
{
    Key other = certtest::ecKey("prime256v1");
    Certificate otherCertificate = certtest::certificateFor(other.get());
    CertificateComponent component;
    ASSERT_TRUE(component.open(certtest::der(s_certificate)));
    ASSERT_TRUE(component.open(certtest::der(otherCertificate.get())));
    EXPECT_EQ(hex(component.getPublicKeyData()), hex(opensslCoordinates(other.get())));
}

} // namespace
