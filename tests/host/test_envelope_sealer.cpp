// The host's envelope sealer against OpenSSL alone: the envelope's shape and DER, who can open
// it, and what it refuses.

#include "sealer/envelope_sealer.h"

#include "openssl_envelope.h"
#include "qt_printers.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

constexpr int kCoordinateSize = 32;

std::string hex(const QByteArray &bytes)
{
    return bytes.toHex().toStdString();
}

// The child at each index in turn, or null where the envelope has none.
const DerNode *childAt(const DerNode &root, std::initializer_list<int> path)
{
    const DerNode *node = &root;
    for (int index : path)
        node = node ? node->child(index) : nullptr;
    return node;
}

// ContentInfo [0] EnvelopedData, its RecipientInfo's encryptedKey.
const std::initializer_list<int> kEncryptedKeyPath = {1, 0, 1, 0, 3};

// OpenSSL's strict decoder takes the whole INTEGER and encodes it back to the same octets: it
// refuses a zero octet in front that the value does not need.
bool isStrictDerInteger(const QByteArray &encoding)
{
    const auto *start = reinterpret_cast<const unsigned char *>(encoding.constData());
    const unsigned char *p = start;
    std::unique_ptr<ASN1_INTEGER, decltype(&ASN1_INTEGER_free)> value(
        d2i_ASN1_INTEGER(nullptr, &p, encoding.size()), ASN1_INTEGER_free);
    if (!value || p != start + encoding.size())
        return false;
    unsigned char *der = nullptr;
    const int length = i2d_ASN1_INTEGER(value.get(), &der);
    const bool same = length == encoding.size() && std::equal(der, der + length, start);
    OPENSSL_free(der);
    return same;
}

// The magnitude of a positive INTEGER's content octets, in bytes.
int magnitudeSize(const QByteArray &content)
{
    BIGNUM *value = BN_bin2bn(reinterpret_cast<const unsigned char *>(content.constData()),
                              content.size(), nullptr);
    const int size = BN_num_bytes(value);
    BN_free(value);
    return size;
}

struct OtherKey
{
    const char *reason;
    EvpPkeyPtr key;
    const char *expected;
};

} // namespace

TEST(EnvelopeSealer, envelopeIsTheLibrarysEnvelopeByteForByte)
{
    const Sm2Identity recipient = makeSm2Identity();
    const QByteArray sessionKey = randomBytes(16);
    const QByteArray content = QByteArrayLiteral("the content");
    QString error;
    const QByteArray envelope =
        zthost::sealEnvelope(recipient.certificateDer, content, sessionKey, &error);
    ASSERT_FALSE(envelope.isEmpty()) << error.toStdString();
    EXPECT_EQ(error, QString());

    // OpenSSL's generic decoder takes the whole envelope.
    const auto *start = reinterpret_cast<const unsigned char *>(envelope.constData());
    const unsigned char *p = start;
    ASN1_TYPE *any = d2i_ASN1_TYPE(nullptr, &p, envelope.size());
    ASSERT_NE(any, nullptr);
    EXPECT_EQ(p - start, envelope.size());
    EXPECT_EQ(ASN1_TYPE_get(any), V_ASN1_SEQUENCE);
    ASN1_TYPE_free(any);

    DerNode root;
    ASSERT_TRUE(parseDer(envelope, &root));
    const DerNode *contentType = childAt(root, {0});
    const DerNode *keyAlgorithm = childAt(root, {1, 0, 1, 0, 2, 0});
    const DerNode *dataType = childAt(root, {1, 0, 2, 0});
    const DerNode *contentAlgorithm = childAt(root, {1, 0, 2, 1, 0});
    const DerNode *encryptedKey = childAt(root, kEncryptedKeyPath);
    const DerNode *encryptedContent = childAt(root, {1, 0, 2, 2, 0});
    ASSERT_TRUE(contentType && keyAlgorithm && dataType && contentAlgorithm && encryptedKey
                && encryptedContent);
    EXPECT_EQ(oidText(contentType->content), QByteArray("1.2.156.10197.6.1.4.2.3"));
    EXPECT_EQ(oidText(keyAlgorithm->content), QByteArray("1.2.156.10197.1.301.3"));
    EXPECT_EQ(oidText(dataType->content), QByteArray("1.2.156.10197.6.1.4.2.1"));
    EXPECT_EQ(oidText(contentAlgorithm->content), QByteArray("1.2.156.10197.1.104.1"));
    EXPECT_EQ(hex(sm2Decrypt(recipient.key.get(), encryptedKey->content)), hex(sessionKey));
    EXPECT_EQ(hex(encryptedContent->content), hex(sm4EcbEncrypt(sessionKey, content)));

    // The library's envelope, written down independently around the same two ciphertexts.
    EnvelopeParts parts;
    ASSERT_TRUE(issuerAndSerialOf(recipient.certificateDer, &parts.issuerDer, &parts.serialDer));
    parts.encryptedKey = encryptedKey->content;
    parts.encryptedContent = sm4EcbEncrypt(sessionKey, content);
    EXPECT_EQ(hex(envelope), hex(assembleEnvelope(parts)));
}

TEST(EnvelopeSealer, coordinatesAreMinimalDerWithASignOctetOnlyForATopBit)
{
    const Sm2Identity recipient = makeSm2Identity();
    int withSignOctet = 0;
    int withoutSignOctet = 0;
    // Each coordinate has its top bit set half the time: 64 keys show both kinds many times.
    for (int i = 0; i < 64; ++i) {
        QString error;
        const QByteArray structure =
            zthost::sealSessionKey(recipient.certificateDer, randomBytes(16), &error);
        ASSERT_FALSE(structure.isEmpty()) << error.toStdString();
        DerNode cipher;
        ASSERT_TRUE(parseDer(structure, &cipher));
        ASSERT_EQ(cipher.children.size(), 4);
        for (int index : {0, 1}) {
            SCOPED_TRACE(index == 0 ? "x" : "y");
            const DerNode &coordinate = cipher.children.at(index);
            EXPECT_EQ(coordinate.identifier, V_ASN1_INTEGER);
            EXPECT_TRUE(isStrictDerInteger(coordinate.encoding)) << hex(coordinate.encoding);
            const auto first = static_cast<unsigned char>(coordinate.content.at(0));
            if (coordinate.content.size() == kCoordinateSize + 1) {
                EXPECT_EQ(first, 0x00);
                EXPECT_TRUE(static_cast<unsigned char>(coordinate.content.at(1)) & 0x80);
                ++withSignOctet;
            } else {
                EXPECT_EQ(coordinate.content.size(), kCoordinateSize);
                EXPECT_FALSE(first & 0x80);
                ++withoutSignOctet;
            }
        }
        EXPECT_EQ(cipher.children.at(2).content.size(), 32) << "hash";
        EXPECT_EQ(cipher.children.at(3).content.size(), 16) << "cipherText";
        // And OpenSSL decrypts the structure as it is.
        EXPECT_FALSE(sm2Decrypt(recipient.key.get(), structure).isEmpty());
    }
    EXPECT_GT(withSignOctet, 0);
    EXPECT_GT(withoutSignOctet, 0);
}

TEST(EnvelopeSealer, everySealedKeyCarriesTwoWhole32ByteCoordinates)
{
    // One ciphertext in 128 has a coordinate with a leading zero octet: without the sealer's
    // retry, 1024 keys would show one all but 3 times in 10,000.
    const Sm2Identity recipient = makeSm2Identity();
    for (int i = 0; i < 1024; ++i) {
        QString error;
        const QByteArray structure =
            zthost::sealSessionKey(recipient.certificateDer, randomBytes(16), &error);
        Sm2CiphertextFields fields;
        ASSERT_TRUE(splitSm2Ciphertext(structure, &fields)) << error.toStdString();
        ASSERT_EQ(magnitudeSize(fields.x), kCoordinateSize) << i;
        ASSERT_EQ(magnitudeSize(fields.y), kCoordinateSize) << i;
    }
}

TEST(EnvelopeSealer, openSslAloneOpensTheEnvelopeWithThePrivateKey)
{
    const Sm2Identity recipient = makeSm2Identity();
    struct Row
    {
        int size;
        const char *reason;
    };
    const Row rows[] = {
        {1, "one byte"},
        {15, "one short of a block"},
        {16, "exactly one block: a whole block of padding follows"},
        {17, "one past a block"},
        {100000, "many blocks"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        const QByteArray content = randomBytes(row.size);
        QString error;
        const QByteArray envelope = zthost::sealEnvelope(recipient.certificateDer, content, &error);
        ASSERT_FALSE(envelope.isEmpty()) << error.toStdString();
        EXPECT_TRUE(openEnvelopeWithOpenSsl(envelope, recipient.key.get()) == content);
    }
}

TEST(EnvelopeSealer, everyEnvelopeHasAFreshSessionKey)
{
    const Sm2Identity recipient = makeSm2Identity();
    const QByteArray content = QByteArrayLiteral("same content twice");
    QString error;
    const QByteArray first = zthost::sealEnvelope(recipient.certificateDer, content, &error);
    const QByteArray second = zthost::sealEnvelope(recipient.certificateDer, content, &error);
    DerNode firstRoot, secondRoot;
    ASSERT_TRUE(parseDer(first, &firstRoot));
    ASSERT_TRUE(parseDer(second, &secondRoot));
    const DerNode *firstContent = childAt(firstRoot, {1, 0, 2, 2, 0});
    const DerNode *secondContent = childAt(secondRoot, {1, 0, 2, 2, 0});
    ASSERT_TRUE(firstContent && secondContent);
    EXPECT_NE(hex(firstContent->content), hex(secondContent->content));
}

TEST(EnvelopeSealer, whatIsNoCertificateIsRefusedNamingItsSize)
{
    const QByteArray certificate = makeSm2Identity().certificateDer;
    struct Row
    {
        QByteArray bytes;
        QString expected;
        const char *reason;
    };
    const Row rows[] = {
        {QByteArrayLiteral("not a certificate"),
         QStringLiteral("the recipient certificate does not parse: 17 bytes that are no DER "
                        "X.509 certificate"),
         "text"},
        {QByteArray(),
         QStringLiteral("the recipient certificate does not parse: 0 bytes that are no DER X.509 "
                        "certificate"),
         "nothing"},
        {certificate.left(100),
         QStringLiteral("the recipient certificate does not parse: 100 bytes that are no DER "
                        "X.509 certificate"),
         "cut short"},
        {certificate + QByteArrayLiteral("\0\0"),
         QStringLiteral("the recipient certificate is %1 bytes, followed by 2 more")
             .arg(certificate.size()),
         "bytes after it"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        QString error;
        EXPECT_EQ(zthost::sealEnvelope(row.bytes, QByteArrayLiteral("x"), &error), QByteArray());
        EXPECT_EQ(error, row.expected);
        error.clear();
        EXPECT_EQ(zthost::sealSessionKey(row.bytes, randomBytes(16), &error), QByteArray());
        EXPECT_EQ(error, row.expected);
    }
}

TEST(EnvelopeSealer, keyThatIsNotSm2IsRefusedNamingItsType)
{
    OtherKey keys[] = {
        {"RSA", EvpPkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t(2048))),
         "the recipient certificate's key is RSA, not SM2: the session key can only be sealed to "
         "an SM2 key"},
        {"P-256", EvpPkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")),
         "the recipient certificate's key is EC on curve prime256v1, not SM2: the session key can "
         "only be sealed to an SM2 key"},
    };
    for (const OtherKey &other : keys) {
        SCOPED_TRACE(other.reason);
        ASSERT_NE(other.key, nullptr);
        const QByteArray certificate = selfSignedCertificateDer(other.key.get(), EVP_sha256());
        ASSERT_FALSE(certificate.isEmpty());
        QString error;
        EXPECT_EQ(zthost::sealEnvelope(certificate, QByteArrayLiteral("x"), &error), QByteArray());
        EXPECT_EQ(error, QLatin1String(other.expected));
    }
}

TEST(EnvelopeSealer, emptyContentIsRefused)
{
    QString error;
    EXPECT_EQ(zthost::sealEnvelope(makeSm2Identity().certificateDer, QByteArray(), &error),
              QByteArray());
    EXPECT_EQ(error, QStringLiteral("the content is empty: an envelope needs at least one byte of "
                                    "content"));
}

TEST(EnvelopeSealer, sessionKeyOfAnotherLengthIsRefused)
{
    const QByteArray certificate = makeSm2Identity().certificateDer;
    for (int size : {0, 15, 17, 32}) {
        SCOPED_TRACE(size);
        QString error;
        EXPECT_EQ(zthost::sealEnvelope(certificate, QByteArrayLiteral("x"), randomBytes(size),
                                       &error),
                  QByteArray());
        EXPECT_EQ(error, QStringLiteral("the session key is %1 bytes, expected 16").arg(size));
    }
}
