// Reading a digital envelope: load takes out the encrypted key and content (success judged by
// the content alone), GetEncKeyData packs the key back into x ‖ y ‖ HASH ‖ CipherText, and
// ParseCertData walks a certificate. The envelopes here are written with OpenSSL, not the library.

#include "qt_printers.h"
#include "asn_document_spy.h"
#include "asn_host.h"
#include "envelope_expectations.h"
#include "error_probe.h"
#include "log_sandbox.h"
#include "stdout_capture.h"
#include "zt_envelope_data.h"

#include <QtGlobal>

#include <gtest/gtest.h>

#include <string>

namespace {

const QString kParseFailed = QStringLiteral("数字信封解析失败");  // 0x2006
const QString kModuleLoadFailed = QStringLiteral("模块加载失败"); // 0x2005

std::string hex(const QByteArray &bytes)
{
    return bytes.toHex().toStdString();
}

// x with its top bit set, y without: the ordinary DER INTEGERs of an SM2 ciphertext.
Sm2CiphertextFields countingFields()
{
    const QByteArray packed = countingPackedKey();
    return {hostInteger(packed.mid(0, 32)), packed.mid(32, 32), packed.mid(64, 32),
            packed.mid(96, 16)};
}

QByteArray envelopeWithKey(const QByteArray &encryptedKey, const QByteArray &content)
{
    EnvelopeParts parts;
    parts.issuerDer = derValue(0x30, QByteArray());
    parts.serialDer = QByteArrayLiteral("\x02\x01\x07");
    parts.encryptedKey = encryptedKey;
    parts.encryptedContent = content;
    return assembleEnvelope(parts);
}

// Qt's debug channel, recorded for one test.
class DebugMessages
{
public:
    DebugMessages() { s_lines = &m_lines; m_previous = qInstallMessageHandler(record); }
    ~DebugMessages()
    {
        qInstallMessageHandler(m_previous);
        s_lines = nullptr;
    }
    const QStringList &lines() const { return m_lines; }

private:
    static void record(QtMsgType type, const QMessageLogContext &, const QString &message)
    {
        if (s_lines && type == QtDebugMsg)
            s_lines->append(message);
    }
    static QStringList *s_lines;
    QStringList m_lines;
    QtMessageHandler m_previous;
};
QStringList *DebugMessages::s_lines = nullptr;

struct Loading
{
    LogSandbox logs;
    AsnHost host;
    ZtEnvelopeData envelope;

    Loading()
    {
        host.core.clearRecords();
        SetCryptoErrorCode(kEarlierCode);
    }
};

} // namespace

TEST(EnvelopeLoading, envelopeWrittenByBuildLoadsBackItsKeyAndContent)
{
    Loading l;
    const Sm2Identity recipient = makeSm2Identity();
    ZtEnvelopeData writer;
    writer.SetRecCert(recipient.certificateDer);
    writer.SetEncKeyData(countingPackedKey());
    writer.SetEncContent(QByteArrayLiteral("sixteen byte blk"));

    EXPECT_TRUE(l.envelope.load(writer.build()));
    EXPECT_EQ(hex(l.envelope.GetEncKeyData()), hex(countingPackedKey()));
    EXPECT_EQ(l.envelope.GetEncContent(), QByteArrayLiteral("sixteen byte blk"));
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
    EXPECT_TRUE(l.host.core.traceLines().isEmpty());
}

TEST(EnvelopeLoading, loadWalksTheDocumentedPath)
{
    Loading l;
    const QByteArray envelope = envelopeWithKey(sm2CiphertextDer(countingFields()), "c");
    ASSERT_TRUE(l.envelope.load(envelope));
    EXPECT_EQ(l.host.asn.documentCalls(),
              (QStringList{QStringLiteral("1 open(%1 bytes)").arg(envelope.size()),
                           "1 checkTag(48)", "1 getChild(1,160)"}));
}

TEST(EnvelopeLoading, emptyEnvelopeFailsWithParseErrorAndEmptyFields)
{
    Loading l;
    l.envelope.SetEncContent(QByteArrayLiteral("old"));
    EXPECT_FALSE(l.envelope.load(QByteArray()));
    EXPECT_EQ(currentErrorMessage(), kParseFailed);
    EXPECT_TRUE(l.envelope.GetEncContent().isEmpty());
    EXPECT_TRUE(l.envelope.GetEncKeyData().isEmpty());
}

TEST(EnvelopeLoading, outerElementThatIsNotASequenceIsClosedWithParseError)
{
    Loading l;
    EXPECT_FALSE(l.envelope.load(QByteArrayLiteral("\x31\x03\x04\x01\x01")));
    EXPECT_EQ(currentErrorMessage(), kParseFailed);
    EXPECT_EQ(l.host.asn.documentCalls(),
              (QStringList{"1 open(5 bytes)", "1 checkTag(48)", "1 close()"}));
}

TEST(EnvelopeLoading, missingAsnComponentFailsWithModuleLoadError)
{
    Loading l;
    l.host.asn.withdraw();
    StdoutCapture out;
    EXPECT_FALSE(l.envelope.load(envelopeWithKey(sm2CiphertextDer(countingFields()), "c")));
    EXPECT_EQ(out.text(), QByteArray("createComponentObject =   fail"));
    EXPECT_EQ(currentErrorMessage(), kModuleLoadFailed);
}

TEST(EnvelopeLoading, recipientWithoutEncryptedKeyStillLoads)
{
    Loading l;
    EnvelopeParts parts;
    parts.withEncryptedKey = false;
    parts.encryptedContent = QByteArrayLiteral("content");
    EXPECT_TRUE(l.envelope.load(assembleEnvelope(parts)));
    EXPECT_EQ(l.envelope.GetEncContent(), QByteArrayLiteral("content"));
    EXPECT_TRUE(l.envelope.GetEncKeyData().isEmpty());
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(EnvelopeLoading, envelopeWithoutContentFailsWithParseError)
{
    struct Row
    {
        const char *reason;
        QByteArray envelope;
    };
    EnvelopeParts emptyContent;
    emptyContent.encryptedKey = sm2CiphertextDer(countingFields());
    EnvelopeParts primitiveContent = emptyContent;
    primitiveContent.encryptedContent = QByteArrayLiteral("content");
    primitiveContent.primitiveContent = true;
    const Row rows[] = {
        {"the one segment is empty", assembleEnvelope(emptyContent)},
        {"content as a primitive [0] (0x80) has no 0xA0 child", assembleEnvelope(primitiveContent)},
        {"ContentInfo without [0]", derValue(0x30, derValue(0x06, emptyContent.contentType))},
        {"bytes that are not DER", QByteArrayLiteral("not an envelope")},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Loading l;
        EXPECT_FALSE(l.envelope.load(row.envelope));
        EXPECT_EQ(currentErrorMessage(), kParseFailed);
        EXPECT_TRUE(l.envelope.GetEncContent().isEmpty());
    }
}

TEST(EnvelopeLoading, failedLoadClearsWhatAnEarlierLoadFound)
{
    Loading l;
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(sm2CiphertextDer(countingFields()), "c")));
    EXPECT_FALSE(l.envelope.load(QByteArrayLiteral("\x30\x00")));
    EXPECT_TRUE(l.envelope.GetEncContent().isEmpty());
    EXPECT_TRUE(l.envelope.GetEncKeyData().isEmpty());
}

TEST(EnvelopeLoading, loadLeavesTheRecipientCertificateAlone)
{
    Loading l;
    const Sm2Identity recipient = makeSm2Identity();
    l.envelope.SetRecCert(recipient.certificateDer);
    const QByteArray encryptedKey = sm2CiphertextDer(countingFields());
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(encryptedKey, "c")));
    EXPECT_EQ(hex(l.envelope.build()),
              hex(expectedEnvelope(recipient.certificateDer, encryptedKey, "c")));
}

TEST(EnvelopeLoading, onlyTheFirstRecipientIsRead)
{
    Loading l;
    EnvelopeParts parts;
    parts.encryptedKey = sm2CiphertextDer(countingFields());
    parts.encryptedContent = QByteArrayLiteral("c");
    parts.recipientCount = 2;
    QByteArray envelope = assembleEnvelope(parts);
    // Make the second recipient's CipherText differ from the first one's: its last byte.
    const QByteArray firstCipher = countingPackedKey().mid(96, 16);
    const int second = envelope.lastIndexOf(firstCipher);
    ASSERT_GT(second, envelope.indexOf(firstCipher));
    envelope[second + 15] = '\x00';

    ASSERT_TRUE(l.envelope.load(envelope));
    EXPECT_EQ(hex(l.envelope.GetEncKeyData()), hex(countingPackedKey()));
}

TEST(EnvelopeLoading, uncheckedIdentifiersAndVersionsAreReadAllTheSame)
{
    Loading l;
    EnvelopeParts parts;
    parts.contentType = QByteArrayLiteral("\x2A\x86\x48\x86\xF7\x0D\x01\x07\x03"); // PKCS #7
    parts.version = QByteArrayLiteral("\x02");
    parts.recipientVersion = QByteArrayLiteral("\x00");
    parts.dataContentType = QByteArrayLiteral("\x2A\x03");
    parts.keyAlgorithm = QByteArrayLiteral("\x2A\x04");
    parts.contentAlgorithm = QByteArrayLiteral("\x2A\x05");
    parts.encryptedKey = sm2CiphertextDer(countingFields());
    parts.encryptedContent = QByteArrayLiteral("content");
    ASSERT_TRUE(l.envelope.load(assembleEnvelope(parts)));
    EXPECT_EQ(hex(l.envelope.GetEncKeyData()), hex(countingPackedKey()));
    EXPECT_EQ(l.envelope.GetEncContent(), QByteArrayLiteral("content"));
}

TEST(EnvelopeLoading, loadDumpsKeyAndContentToQtDebug)
{
    Loading l;
    const QByteArray encryptedKey = sm2CiphertextDer(countingFields());
    DebugMessages debug;
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(encryptedKey, QByteArrayLiteral("\x01\xab"))));
    EXPECT_EQ(debug.lines(),
              (QStringList{QStringLiteral("pbtEncKeyData =  \"%1\"")
                               .arg(QString::fromLatin1(encryptedKey.toHex())),
                           QStringLiteral("pbtEncContent =  \"01ab\"")}));
}

TEST(EnvelopeLoading, packedKeyIsExactly112BytesForFullFields)
{
    Loading l;
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(sm2CiphertextDer(countingFields()), "c")));
    const QByteArray packed = l.envelope.GetEncKeyData();
    EXPECT_EQ(packed.size(), 112);
    EXPECT_EQ(hex(packed), hex(countingPackedKey()));
}

TEST(EnvelopeLoading, coordinateWithALeadingZeroOctetLosesIt)
{
    Loading l;
    Sm2CiphertextFields fields = countingFields();
    ASSERT_EQ(fields.x.size(), 33);
    ASSERT_EQ(fields.x.at(0), '\0');
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(sm2CiphertextDer(fields), "c")));
    EXPECT_EQ(hex(l.envelope.GetEncKeyData().left(32)), hex(fields.x.mid(1)));
}

TEST(EnvelopeLoading, shortCoordinateIsAppendedShortAndMovesTheRest)
{
    Loading l;
    Sm2CiphertextFields fields = countingFields();
    fields.x = countingPackedKey().mid(1, 31); // a value whose first byte was 00, dropped
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(sm2CiphertextDer(fields), "c")));
    const QByteArray packed = l.envelope.GetEncKeyData();
    EXPECT_EQ(packed.size(), 111);
    EXPECT_EQ(hex(packed.mid(31, 32)), hex(fields.y));
    EXPECT_EQ(hex(packed), hex(fields.x + fields.y + fields.hash + fields.cipher));
}

TEST(EnvelopeLoading, longCoordinateKeepsItsLast32Octets)
{
    Loading l;
    Sm2CiphertextFields fields = countingFields();
    fields.y = QByteArrayLiteral("\x01\x02\x03") + fields.y;
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(sm2CiphertextDer(fields), "c")));
    EXPECT_EQ(hex(l.envelope.GetEncKeyData()), hex(countingPackedKey()));
}

TEST(EnvelopeLoading, getEncKeyDataDumpsBothCoordinatesToQtDebug)
{
    Loading l;
    const Sm2CiphertextFields fields = countingFields();
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(sm2CiphertextDer(fields), "c")));
    DebugMessages debug;
    l.envelope.GetEncKeyData();
    EXPECT_EQ(debug.lines(),
              (QStringList{QStringLiteral("pXCoordinate->toByteArray() =  \"%1\"")
                               .arg(QString::fromLatin1(fields.x.toHex())),
                           QStringLiteral("pYCoordinate->toByteArray() =  \"%1\"")
                               .arg(QString::fromLatin1(fields.y.toHex()))}));
}

TEST(EnvelopeLoading, getEncKeyDataSkipsEachMissingField)
{
    struct Row
    {
        const char *reason;
        QByteArray encryptedKey;
        QByteArray packed;
    };
    const QByteArray full = countingPackedKey();
    const Sm2CiphertextFields f = countingFields();
    const Row rows[] = {
        {"no x: y comes first", derValue(0x30, derValue(0x04, f.x) + derValue(0x02, f.y) + derValue(0x04, f.hash) + derValue(0x04, f.cipher)),
         full.mid(32)},
        {"only x and y", derValue(0x30, derValue(0x02, f.x) + derValue(0x02, f.y)), full.left(64)},
        {"HASH as an INTEGER is skipped", derValue(0x30, derValue(0x02, f.x) + derValue(0x02, f.y) + derValue(0x02, f.hash) + derValue(0x04, f.cipher)),
         full.left(64) + full.mid(96)},
        {"an empty SEQUENCE", derValue(0x30, QByteArray()), QByteArray()},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Loading l;
        ASSERT_TRUE(l.envelope.load(envelopeWithKey(row.encryptedKey, "c")));
        EXPECT_EQ(hex(l.envelope.GetEncKeyData()), hex(row.packed));
    }
}

TEST(EnvelopeLoading, getEncKeyDataOfWhatIsNotASequenceIsEmpty)
{
    Loading l;
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(QByteArrayLiteral("\x31\x03\x02\x01\x05"), "c")));
    l.host.asn.clearRecords();
    EXPECT_TRUE(l.envelope.GetEncKeyData().isEmpty());
    EXPECT_EQ(l.host.asn.documentCalls(),
              (QStringList{"1 open(5 bytes)", "1 checkTag(48)", "1 close()"}));

    ASSERT_TRUE(l.envelope.load(envelopeWithKey(QByteArrayLiteral("garbage"), "c")));
    EXPECT_TRUE(l.envelope.GetEncKeyData().isEmpty());
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(EnvelopeLoading, getEncKeyDataWithoutAsnComponentIsEmpty)
{
    Loading l;
    ASSERT_TRUE(l.envelope.load(envelopeWithKey(sm2CiphertextDer(countingFields()), "c")));
    l.host.asn.withdraw();
    StdoutCapture out;
    EXPECT_TRUE(l.envelope.GetEncKeyData().isEmpty());
    EXPECT_EQ(out.text(), QByteArray("createComponentObject =   fail"));
}

TEST(EnvelopeLoading, parseCertDataAnswersByItsOwnRules)
{
    struct Row
    {
        const char *reason;
        QByteArray certificate;
        bool answer;
        QStringList calls;
    };
    const QByteArray certificate = makeSm2Identity().certificateDer;
    const Row rows[] = {
        {"a real certificate is walked", certificate, true,
         {QStringLiteral("1 open(%1 bytes)").arg(certificate.size()), "1 checkTag(48)", "1 getChild(0,48)"}},
        {"bytes the host cannot parse count as walked", QByteArrayLiteral("\xde\xad\xbe\xef"), true,
         {"1 open(4 bytes)"}},
        {"nothing at all counts as walked", QByteArray(), true, {"1 open(0 bytes)"}},
        {"a SET is refused and closed", QByteArrayLiteral("\x31\x00"), false,
         {"1 open(2 bytes)", "1 checkTag(48)", "1 close()"}},
        {"a SEQUENCE without tbsCertificate", QByteArrayLiteral("\x30\x03\x02\x01\x01"), true,
         {"1 open(5 bytes)", "1 checkTag(48)", "1 getChild(0,48)"}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Loading l;
        EXPECT_EQ(l.envelope.ParseCertData(row.certificate), row.answer);
        EXPECT_EQ(l.host.asn.documentCalls(), row.calls);
        EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
        EXPECT_TRUE(l.envelope.GetEncContent().isEmpty());
    }
}

TEST(EnvelopeLoading, parseCertDataWithoutAsnComponentIsFalse)
{
    Loading l;
    l.host.asn.withdraw();
    StdoutCapture out;
    EXPECT_FALSE(l.envelope.ParseCertData(makeSm2Identity().certificateDer));
    EXPECT_EQ(out.text(), QByteArray("createComponentObject =   fail"));
}
