// The envelope against a codec nobody here wrote: what ZtEnvelopeData builds through the host's
// ASN.1 component is read by OpenSSL element by element, and envelopes OpenSSL writes (real SM2
// and SM4 encryption) are read by load and GetEncKeyData.

#include "qt_printers.h"
#include "asn_host.h"
#include "envelope_expectations.h"
#include "error_probe.h"
#include "log_sandbox.h"
#include "zt_envelope_data.h"

#include <openssl/asn1.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

std::string hex(const QByteArray &bytes)
{
    return bytes.toHex().toStdString();
}

struct Interop
{
    LogSandbox logs;
    AsnHost host;
    Sm2Identity recipient = makeSm2Identity();
};

// OpenSSL SM2 ciphertexts of a fresh random session key until one whose fields satisfy `wanted`
// comes up. Each coordinate is 31 octets or shorter once in 256 tries, 33 octets every other
// time, so the bound leaves a wide margin.
bool encryptUntil(EVP_PKEY *key, const std::function<bool(const Sm2CiphertextFields &)> &wanted,
                  QByteArray *sessionKey, QByteArray *der, Sm2CiphertextFields *fields)
{
    for (int attempt = 0; attempt < 20000; ++attempt) {
        *sessionKey = randomBytes(16);
        *der = sm2Encrypt(key, *sessionKey);
        if (splitSm2Ciphertext(*der, fields) && wanted(*fields))
            return true;
    }
    return false;
}

// No leading 00: strict DER for OpenSSL both ways after the host's INTEGER rule.
bool fullLengthCoordinates(const Sm2CiphertextFields &f)
{
    return f.x.size() == 32 && f.y.size() == 32;
}

// The packed key the library reads back from an envelope that carries `cipherDer` as its
// encrypted key; empty (and a test failure) when the envelope does not load.
QByteArray packedKeyReadBack(const QByteArray &cipherDer, const QByteArray &sessionKey)
{
    EnvelopeParts parts;
    parts.encryptedKey = cipherDer;
    parts.encryptedContent = sm4EcbEncrypt(sessionKey, QByteArrayLiteral("x"));
    ZtEnvelopeData envelope;
    EXPECT_TRUE(envelope.load(assembleEnvelope(parts)));
    return envelope.GetEncKeyData();
}

} // namespace

TEST(EnvelopeInterop, openSslReadsEveryElementOfABuiltEnvelope)
{
    Interop t;
    QByteArray sessionKey, cipherDer;
    Sm2CiphertextFields fields;
    ASSERT_TRUE(encryptUntil(t.recipient.key.get(), fullLengthCoordinates, &sessionKey, &cipherDer,
                             &fields));
    const QByteArray content = sm4EcbEncrypt(sessionKey, QByteArrayLiteral("the content"));
    ZtEnvelopeData envelope;
    envelope.SetRecCert(t.recipient.certificateDer);
    envelope.SetEncKeyData(packedKeyData(fields));
    envelope.SetEncContent(content);
    const QByteArray built = envelope.build();

    // OpenSSL's generic decoder takes the whole envelope and encodes it back unchanged.
    const unsigned char *p = reinterpret_cast<const unsigned char *>(built.constData());
    ASN1_TYPE *any = d2i_ASN1_TYPE(nullptr, &p, built.size());
    ASSERT_NE(any, nullptr);
    EXPECT_EQ(p - reinterpret_cast<const unsigned char *>(built.constData()), built.size());
    EXPECT_EQ(ASN1_TYPE_get(any), V_ASN1_SEQUENCE);
    ASN1_TYPE_free(any);

    DerNode root;
    ASSERT_TRUE(parseDer(built, &root));
    ASSERT_EQ(root.identifier, 0x30);
    ASSERT_EQ(root.children.size(), 2);
    EXPECT_EQ(root.children[0].identifier, 0x06);
    EXPECT_EQ(oidText(root.children[0].content), QByteArray("1.2.156.10197.6.1.4.2.3"));
    const DerNode &content0 = root.children[1];
    EXPECT_EQ(content0.identifier, 0xA0);
    ASSERT_EQ(content0.children.size(), 1);
    const DerNode &envelopedData = content0.children[0];
    EXPECT_EQ(envelopedData.identifier, 0x30);
    ASSERT_EQ(envelopedData.children.size(), 3);
    EXPECT_EQ(envelopedData.children[0].encoding.toHex(), QByteArray("020101"));

    const DerNode &recipients = envelopedData.children[1];
    EXPECT_EQ(recipients.identifier, 0x31);
    ASSERT_EQ(recipients.children.size(), 1);
    const DerNode &recipient = recipients.children[0];
    EXPECT_EQ(recipient.identifier, 0x30);
    ASSERT_EQ(recipient.children.size(), 4);
    EXPECT_EQ(recipient.children[0].encoding.toHex(), QByteArray("020101"));
    QByteArray issuer, serial;
    ASSERT_TRUE(issuerAndSerialOf(t.recipient.certificateDer, &issuer, &serial));
    EXPECT_EQ(recipient.children[1].identifier, 0x30);
    EXPECT_EQ(hex(recipient.children[1].content), hex(issuer + serial));
    const DerNode &keyAlgorithm = recipient.children[2];
    EXPECT_EQ(keyAlgorithm.identifier, 0x30);
    ASSERT_EQ(keyAlgorithm.children.size(), 1); // no parameters, not even NULL
    EXPECT_EQ(oidText(keyAlgorithm.children[0].content), QByteArray("1.2.156.10197.1.301.3"));
    EXPECT_EQ(recipient.children[3].identifier, 0x04);
    EXPECT_EQ(hex(recipient.children[3].content), hex(cipherDer));

    const DerNode &info = envelopedData.children[2];
    EXPECT_EQ(info.identifier, 0x30);
    ASSERT_EQ(info.children.size(), 3);
    EXPECT_EQ(oidText(info.children[0].content), QByteArray("1.2.156.10197.6.1.4.2.1"));
    ASSERT_EQ(info.children[1].children.size(), 1);
    EXPECT_EQ(oidText(info.children[1].children[0].content), QByteArray("1.2.156.10197.1.104.1"));
    const DerNode &encrypted = info.children[2];
    EXPECT_EQ(encrypted.identifier, 0xA0);
    ASSERT_EQ(encrypted.children.size(), 1);
    EXPECT_EQ(encrypted.children[0].identifier, 0x04);
    EXPECT_EQ(hex(encrypted.children[0].content), hex(content));

    // And OpenSSL alone opens it with the recipient's private key.
    EXPECT_EQ(openEnvelopeWithOpenSsl(built, t.recipient.key.get()), QByteArray("the content"));
}

TEST(EnvelopeInterop, envelopeWrittenByOpenSslIsReadBack)
{
    Interop t;
    QByteArray sessionKey;
    const QByteArray envelopeDer =
        makeEnvelopeWithOpenSsl(t.recipient.certificateDer, QByteArrayLiteral("hello"), &sessionKey);
    ASSERT_FALSE(envelopeDer.isEmpty());

    ZtEnvelopeData envelope;
    ASSERT_TRUE(envelope.load(envelopeDer));
    const QByteArray packed = envelope.GetEncKeyData();

    DerNode root;
    ASSERT_TRUE(parseDer(envelopeDer, &root));
    Sm2CiphertextFields fields;
    ASSERT_TRUE(splitSm2Ciphertext(root.child(1)->child(0)->child(1)->child(0)->child(3)->content,
                                   &fields));
    if (fields.x.size() >= 32 && fields.y.size() >= 32) { // the common case; short ones below
        EXPECT_EQ(hex(packed), hex(packedKeyData(fields)));
    }
    EXPECT_EQ(hex(sm4EcbDecrypt(sessionKey, envelope.GetEncContent())), hex("hello"));
}

TEST(EnvelopeInterop, thirtyThreeOctetCoordinateFromOpenSslIsStrippedTo32)
{
    Interop t;
    QByteArray sessionKey, cipherDer;
    Sm2CiphertextFields fields;
    ASSERT_TRUE(encryptUntil(
        t.recipient.key.get(),
        [](const Sm2CiphertextFields &f) { return f.x.size() == 33 && f.y.size() == 32; },
        &sessionKey, &cipherDer, &fields));
    const QByteArray packed = packedKeyReadBack(cipherDer, sessionKey);
    ASSERT_EQ(packed.size(), 112);
    EXPECT_EQ(hex(packed.left(32)), hex(fields.x.mid(1)));
    // The packed key is the device's input: OpenSSL decrypts the session key from it.
    const Sm2CiphertextFields back{hostInteger(packed.mid(0, 32)), hostInteger(packed.mid(32, 32)),
                                   packed.mid(64, 32), packed.mid(96, 16)};
    EXPECT_EQ(hex(sm2Decrypt(t.recipient.key.get(), sm2CiphertextDer(back))), hex(sessionKey));
}

TEST(EnvelopeInterop, thirtyOneOctetCoordinateFromOpenSslShiftsThePackedOffsets)
{
    Interop t;
    QByteArray sessionKey, cipherDer;
    Sm2CiphertextFields fields;
    ASSERT_TRUE(encryptUntil(
        t.recipient.key.get(),
        [](const Sm2CiphertextFields &f) { return f.x.size() == 31 && f.y.size() >= 32; },
        &sessionKey, &cipherDer, &fields));
    const QByteArray packed = packedKeyReadBack(cipherDer, sessionKey);
    EXPECT_EQ(packed.size(), 111);
    EXPECT_EQ(hex(packed.left(31)), hex(fields.x));
    EXPECT_EQ(hex(packed.mid(31, 32)), hex(fields.y.right(32)));
    EXPECT_EQ(hex(packed.mid(63)), hex(fields.hash + fields.cipher));
}
