// Writing a digital envelope: SetEncKeyData turns packed key data into the SM2 cipher structure,
// build assembles the envelope around the recipient certificate's issuer and serial number.
// Both run on the host's real ASN.1 component; failures are told only by the core trace.

#include "qt_printers.h"
#include "asn_document_spy.h"
#include "asn_host.h"
#include "envelope_expectations.h"
#include "error_probe.h"
#include "log_sandbox.h"
#include "stdout_capture.h"
#include "zt_envelope_data.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string hex(const QByteArray &bytes)
{
    return bytes.toHex().toStdString();
}

struct Building
{
    LogSandbox logs;
    AsnHost host;
    Sm2Identity recipient = makeSm2Identity();
    ZtEnvelopeData envelope;

    Building()
    {
        host.core.clearRecords();
        SetCryptoErrorCode(kEarlierCode);
    }
};

// The encryptedKey element of an envelope: ContentInfo [0] EnvelopedData, recipientInfos,
// the first RecipientInfo, element 3.
QByteArray encryptedKeyOf(const QByteArray &envelopeDer)
{
    DerNode root;
    if (!parseDer(envelopeDer, &root))
        return QByteArrayLiteral("unparseable");
    const DerNode *node = root.child(1);
    for (int index : {0, 1, 0, 3})
        node = node ? node->child(index) : nullptr;
    return node ? node->encoding : QByteArrayLiteral("missing");
}

} // namespace

TEST(EnvelopeBuilding, envelopeIsTheOneOpenSslAssemblesFromTheSameParts)
{
    Building b;
    const QByteArray packed = countingPackedKey();
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.envelope.SetEncKeyData(packed);
    b.envelope.SetEncContent(QByteArrayLiteral("encrypted\0content"));

    const QByteArray built = b.envelope.build();

    EXPECT_EQ(hex(built), hex(expectedEnvelope(b.recipient.certificateDer,
                                               expectedCipherStructure(packed),
                                               QByteArrayLiteral("encrypted\0content"))));
    EXPECT_TRUE(b.host.core.traceLines().isEmpty());
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(EnvelopeBuilding, buildAsksTheHostInTheDocumentedOrder)
{
    Building b;
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.host.asn.clearRecords();
    b.envelope.build();
    // Document 1 is the envelope, document 2 the certificate; neither is closed.
    EXPECT_EQ(b.host.asn.documentCalls(),
              (QStringList{"1 create(48)", "1 addSample(6)", "1 addStruct(160)", "1 update()",
                           "1 build()",
                           QStringLiteral("2 open(%1 bytes)").arg(b.recipient.certificateDer.size()),
                           "2 checkTag(48)", "2 getChild(0,48)"}));
}

TEST(EnvelopeBuilding, keyDataBecomesTheSm2CipherStructure)
{
    Building b;
    const QByteArray packed = countingPackedKey();
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.envelope.SetEncKeyData(packed);

    EXPECT_EQ(hex(encryptedKeyOf(b.envelope.build())),
              hex(derValue(0x04, expectedCipherStructure(packed))));
    EXPECT_EQ(b.host.asn.documentCalls().mid(0, 7),
              (QStringList{"1 create(48)", "1 addSample(2)", "1 addSample(2)", "1 addSample(4)",
                           "1 addSample(4)", "1 update()", "1 build()"}));
}

TEST(EnvelopeBuilding, settingKeyDataTwiceKeepsTheSecond)
{
    Building b;
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.envelope.SetEncKeyData(countingPackedKey());
    const QByteArray second(112, '\x11');
    b.envelope.SetEncKeyData(second);
    EXPECT_EQ(hex(encryptedKeyOf(b.envelope.build())),
              hex(derValue(0x04, expectedCipherStructure(second))));
}

TEST(EnvelopeBuilding, shortKeyDataHandsOverOnlyTheBytesItHas)
{
    Building b;
    const QByteArray packed = countingPackedKey().left(40); // x and 8 bytes of y
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.envelope.SetEncKeyData(packed);
    const QByteArray expected = derValue(
        0x30, derValue(0x02, hostInteger(packed.mid(0, 32))) + derValue(0x02, packed.mid(32, 8))
                  + derValue(0x04, QByteArray()) + derValue(0x04, QByteArray()));
    EXPECT_EQ(hex(encryptedKeyOf(b.envelope.build())), hex(derValue(0x04, expected)));
}

TEST(EnvelopeBuilding, cipherTextIsWrittenOnlyWhenTheHashBlockCame)
{
    Building b;
    const QByteArray packed = countingPackedKey();
    b.host.asn.refusals = {{"addSample", 3}}; // the HASH block
    b.envelope.SetEncKeyData(packed);
    b.host.asn.refusals.clear();
    b.envelope.SetRecCert(b.recipient.certificateDer);

    // The CipherText block exists but stays empty.
    const QByteArray expected = derValue(
        0x30, derValue(0x02, hostInteger(packed.mid(0, 32))) + derValue(0x02, packed.mid(32, 32))
                  + derValue(0x04, QByteArray()));
    EXPECT_EQ(hex(encryptedKeyOf(b.envelope.build())), hex(derValue(0x04, expected)));
}

TEST(EnvelopeBuilding, missingCipherTextBlockIsSkipped)
{
    Building b;
    const QByteArray packed = countingPackedKey();
    b.host.asn.refusals = {{"addSample", 4}}; // the CipherText block
    b.envelope.SetEncKeyData(packed);
    b.host.asn.refusals.clear();
    b.envelope.SetRecCert(b.recipient.certificateDer);

    const QByteArray expected = derValue(
        0x30, derValue(0x02, hostInteger(packed.mid(0, 32))) + derValue(0x02, packed.mid(32, 32))
                  + derValue(0x04, packed.mid(64, 32)));
    EXPECT_EQ(hex(encryptedKeyOf(b.envelope.build())), hex(derValue(0x04, expected)));
}

TEST(EnvelopeBuilding, refusedKeyDocumentLeavesEmptyKeyData)
{
    Building b;
    b.envelope.SetEncKeyData(countingPackedKey());
    b.host.asn.refusals = {{"create", 1}};
    b.envelope.SetEncKeyData(countingPackedKey());
    b.host.asn.refusals.clear();
    b.envelope.SetRecCert(b.recipient.certificateDer);
    EXPECT_EQ(hex(encryptedKeyOf(b.envelope.build())), hex(derValue(0x04, QByteArray())));
}

TEST(EnvelopeBuilding, keyDataStaysWithoutAsnComponent)
{
    Building b;
    const QByteArray packed = countingPackedKey();
    b.envelope.SetEncKeyData(packed);
    b.host.asn.withdraw();
    StdoutCapture out;
    b.envelope.SetEncKeyData(QByteArray(112, '\x22'));
    EXPECT_EQ(out.text(), QByteArray("createComponentObject =   fail"));
    b.host.asn.provide();

    b.envelope.SetRecCert(b.recipient.certificateDer);
    EXPECT_EQ(hex(encryptedKeyOf(b.envelope.build())),
              hex(derValue(0x04, expectedCipherStructure(packed))));
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(EnvelopeBuilding, buildBeforeKeyDataWritesAnEmptyEncryptedKey)
{
    Building b;
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.envelope.SetEncContent(QByteArrayLiteral("content"));
    const QByteArray built = b.envelope.build();
    EXPECT_EQ(hex(built), hex(expectedEnvelope(b.recipient.certificateDer, QByteArray(),
                                               QByteArrayLiteral("content"))));
}

TEST(EnvelopeBuilding, emptyCertificateLogsTheOpenFailureAndBuildsNothing)
{
    Building b;
    b.envelope.SetEncContent(QByteArrayLiteral("content"));
    EXPECT_TRUE(b.envelope.build().isEmpty());
    EXPECT_EQ(b.host.core.traceLines(),
              QStringList{"D [build:207]asnParseAgent.cert open fail asn == 0"});
    EXPECT_EQ(b.host.asn.documentCalls(), QStringList{"2 open(0 bytes)"});
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(EnvelopeBuilding, certificateThatIsNotASequenceIsClosedAndBuildsNothing)
{
    Building b;
    b.envelope.SetRecCert(QByteArrayLiteral("\x31\x03\x02\x01\x07"));
    EXPECT_TRUE(b.envelope.build().isEmpty());
    EXPECT_EQ(b.host.core.traceLines(),
              QStringList{"D [build:181]asnParseAgent.checkTag(ASN_TAG_TYPE_SEQUENCE fail"});
    EXPECT_EQ(b.host.asn.documentCalls(),
              (QStringList{"2 open(5 bytes)", "2 checkTag(48)", "2 close()"}));
}

TEST(EnvelopeBuilding, certificateWithoutIssuerStillGivesAnEnvelope)
{
    Building b;
    // tbsCertificate holds version, serial 7 and an algorithm, but no element 3.
    const QByteArray certificate = derValue(
        0x30, derValue(0x30, derValue(0xA0, QByteArrayLiteral("\x02\x01\x02"))
                                 + QByteArrayLiteral("\x02\x01\x07") + derValue(0x30, QByteArray())));
    b.envelope.SetRecCert(certificate);
    b.envelope.SetEncContent(QByteArrayLiteral("x"));

    // The host refuses to add the empty issuer encoding, so only the serial number is there.
    EnvelopeParts parts;
    parts.serialDer = QByteArrayLiteral("\x02\x01\x07");
    parts.encryptedContent = QByteArrayLiteral("x");
    EXPECT_EQ(hex(b.envelope.build()), hex(assembleEnvelope(parts)));
    EXPECT_TRUE(b.host.core.traceLines().isEmpty());
}

TEST(EnvelopeBuilding, missingAsnComponentLogsFailAndBuildsNothing)
{
    Building b;
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.host.asn.withdraw();
    StdoutCapture out;
    EXPECT_TRUE(b.envelope.build().isEmpty());
    EXPECT_EQ(out.text(), QByteArray("createComponentObject =   fail"));
    EXPECT_EQ(b.host.core.traceLines(), QStringList{"D [build:164] fail"});
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(EnvelopeBuilding, refusedEnvelopeRootBuildsNothing)
{
    Building b;
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.host.asn.refusals = {{"create", 1}};
    EXPECT_TRUE(b.envelope.build().isEmpty());
    EXPECT_TRUE(b.host.core.traceLines().isEmpty());
}

TEST(EnvelopeBuilding, refusedContentBlockGivesAShorterEnvelope)
{
    Building b;
    b.envelope.SetRecCert(b.recipient.certificateDer);
    b.host.asn.refusals = {{"addStruct", 1}}; // the [0] around EnvelopedData
    EXPECT_EQ(hex(b.envelope.build()),
              hex(derValue(0x30, derValue(0x06, EnvelopeParts().contentType))));
}

TEST(EnvelopeBuilding, contentComesBackByteForByte)
{
    ZtEnvelopeData envelope;
    const QByteArray content = QByteArrayLiteral("\0\x01\xff content \0");
    envelope.SetEncContent(content);
    EXPECT_EQ(envelope.GetEncContent(), content);
    EXPECT_TRUE(ZtEnvelopeData().GetEncContent().isEmpty());
}
