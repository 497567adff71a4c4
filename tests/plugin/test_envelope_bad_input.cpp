// Hostile input for the envelope road: random, truncated and malformed Base64 and DER handed to
// WebZtDecode, load, GetEncKeyData and ParseCertData on the host's real ASN.1 component. Each
// gets its documented failure value and code and nothing crashes; the sanitizer build checks
// that nothing is read past a buffer.

#include "qt_printers.h"
#include "asn_host.h"
#include "envelope_expectations.h"
#include "error_probe.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "zt_cryptographic.h"
#include "zt_envelope_data.h"

#include <QLoggingCategory>

#include <gtest/gtest.h>

#include <random>

namespace {

const QString kParseFailed = QStringLiteral("数字信封解析失败"); // 0x2006

QByteArray goodEnvelope()
{
    EnvelopeParts parts;
    parts.issuerDer = derValue(0x30, QByteArray());
    parts.serialDer = QByteArrayLiteral("\x02\x01\x07");
    parts.encryptedKey = expectedCipherStructure(countingPackedKey());
    parts.encryptedContent = QByteArrayLiteral("0123456789abcdef");
    return assembleEnvelope(parts);
}

// One fault a row, each made by changing one field of a good envelope.
struct Malformed
{
    const char *reason;
    QByteArray der;
};

QList<Malformed> malformedEnvelopes()
{
    const QByteArray good = goodEnvelope();
    QByteArray lengthPastEnd = good;
    lengthPastEnd[2] = char(lengthPastEnd.at(2) + 1);
    QByteArray shortLength = good;
    shortLength[2] = char(shortLength.at(2) - 1);
    QByteArray indefinite = good;
    indefinite[1] = '\x80';
    QByteArray wrongOuterTag = good;
    wrongOuterTag[0] = '\x31';
    QByteArray hugeLength = QByteArrayLiteral("\x30\x84\x7f\xff\xff\xff") + good.mid(2);
    QByteArray deep;
    for (int i = 0; i < 200; ++i)
        deep = derValue(0x30, deep);
    return {
        {"empty", QByteArray()},
        {"one byte", QByteArrayLiteral("\x30")},
        {"identifier and length only", good.left(2)},
        {"cut at every tenth byte", good.left(good.size() / 10)},
        {"cut one byte short", good.left(good.size() - 1)},
        {"outer length one past the end", lengthPastEnd},
        {"outer length one short: a byte trails", shortLength},
        {"indefinite length", indefinite},
        {"outer element a SET", wrongOuterTag},
        {"four-octet length far past the end", hugeLength},
        {"a byte after the envelope", good + QByteArrayLiteral("\x00")},
        {"200 nested SEQUENCEs", deep},
        {"all 0xFF", QByteArray(64, '\xff')},
        {"all zero", QByteArray(64, '\0')},
    };
}

struct Hostile
{
    LogSandbox logs{LogSandbox::CoreLog::Off}; // thousands of host calls; the trace is not read
    KeyHost host;
    AsnComponents asn{host.core};
    ZtCryptographic crypto;

    Hostile()
    {
        // The reader's dumps of large random inputs would only flood the test output.
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
        host.key.sessionKeyHandle = 0x5E5;
        host.key.decryptInitAnswer = true;
        host.key.plaintext = QByteArrayLiteral("plain");
    }
    ~Hostile() { QLoggingCategory::setFilterRules(QString()); }
};

} // namespace

TEST(EnvelopeBadInput, malformedEnvelopesFailToLoadWithTheParseCode)
{
    for (const Malformed &row : malformedEnvelopes()) {
        SCOPED_TRACE(row.reason);
        Hostile h;
        ZtEnvelopeData envelope;
        SetCryptoErrorCode(kEarlierCode);
        EXPECT_FALSE(envelope.load(row.der));
        EXPECT_EQ(currentErrorMessage(), kParseFailed);
        EXPECT_TRUE(envelope.GetEncContent().isEmpty());
        EXPECT_TRUE(envelope.GetEncKeyData().isEmpty());
    }
}

TEST(EnvelopeBadInput, malformedEnvelopesAnswerFalseFromWebZtDecode)
{
    for (const Malformed &row : malformedEnvelopes()) {
        SCOPED_TRACE(row.reason);
        Hostile h;
        ASSERT_TRUE(h.crypto.WebOpenKey());
        h.host.key.calls.clear();
        EXPECT_EQ(h.crypto.WebZtDecode(QString::fromLatin1(row.der.toBase64()), 0x401),
                  QStringLiteral("false"));
        EXPECT_EQ(currentErrorMessage(), kParseFailed);
        EXPECT_TRUE(h.host.key.calls.isEmpty());
    }
}

TEST(EnvelopeBadInput, malformedCertificatesAreRefusedOrWalked)
{
    for (const Malformed &row : malformedEnvelopes()) {
        SCOPED_TRACE(row.reason);
        Hostile h;
        ZtEnvelopeData envelope;
        // Only a parseable non-SEQUENCE is refused; what does not parse counts as walked.
        EXPECT_EQ(envelope.ParseCertData(row.der), row.der.startsWith('\x31') ? false : true);
    }
}

TEST(EnvelopeBadInput, malformedCipherStructuresGiveShortOrEmptyKeyData)
{
    const QByteArray good = expectedCipherStructure(countingPackedKey());
    for (int cut = 0; cut < good.size(); cut += 7) {
        SCOPED_TRACE(cut);
        Hostile h;
        EnvelopeParts parts;
        parts.encryptedKey = good.left(cut);
        parts.encryptedContent = QByteArrayLiteral("c");
        ZtEnvelopeData envelope;
        ASSERT_TRUE(envelope.load(assembleEnvelope(parts)));
        EXPECT_TRUE(envelope.GetEncKeyData().isEmpty());
        ASSERT_TRUE(h.crypto.WebOpenKey());
        // The blob is made from nothing: all zero but its length byte.
        EXPECT_EQ(h.crypto.WebZtDecode(QString::fromLatin1(assembleEnvelope(parts).toBase64()), 0),
                  QString::fromLatin1(QByteArray("plain").toBase64()));
    }
}

TEST(EnvelopeBadInput, randomBytesAndTextNeverCrashTheRoad)
{
    std::mt19937 random(20261123); // fixed: the same inputs on every run
    const QByteArray good = goodEnvelope();
    Hostile h;
    ASSERT_TRUE(h.crypto.WebOpenKey());
    for (int round = 0; round < 1500; ++round) {
        QByteArray bytes;
        switch (round % 3) {
        case 0: { // random bytes of random length
            bytes.resize(int(random() % 300));
            for (char &c : bytes)
                c = char(random());
            break;
        }
        case 1: { // a good envelope with a few bytes changed
            bytes = good;
            for (int flips = 1 + int(random() % 4); flips > 0; --flips)
                bytes[int(random() % bytes.size())] = char(random());
            break;
        }
        default: // a good envelope cut anywhere
            bytes = good.left(int(random() % good.size()));
        }
        ZtEnvelopeData envelope;
        if (envelope.load(bytes)) {
            EXPECT_FALSE(envelope.GetEncContent().isEmpty());
            EXPECT_LE(envelope.GetEncKeyData().size(), bytes.size());
        }
        envelope.ParseCertData(bytes);
        const QString answer = h.crypto.WebZtDecode(QString::fromLatin1(bytes.toBase64()), 0x401);
        EXPECT_TRUE(answer == QStringLiteral("false")
                    || answer == QString::fromLatin1(QByteArray("plain").toBase64()));
        // Random text that is only partly Base64.
        QString text;
        for (int i = int(random() % 200); i > 0; --i)
            text.append(QChar(ushort(0x20 + random() % 0x60)));
        EXPECT_EQ(h.crypto.WebZtDecode(text, 0x401).isEmpty(), false);
    }
}
