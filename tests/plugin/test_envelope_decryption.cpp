// WebZtDecode: the envelope is parsed on the host's real ASN.1 component and opened by a scripted
// key object that records the exact cipher blob, block-cipher record, algorithm and lengths it
// receives. Every failure answers "false" with its own code and trace line; only a success
// writes the elapsed time to the crypto log.

#include "qt_printers.h"
#include "asn_document_spy.h"
#include "asn_host.h"
#include "envelope_expectations.h"
#include "error_probe.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "zt_cryptographic.h"

#include <QMetaObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <limits>

namespace {

const QString kNoKeyDevice = QStringLiteral("未检测到电子密钥盘");         // 1000
const QString kParseFailed = QStringLiteral("数字信封解析失败");           // 0x2006
const QString kNoContainer = QStringLiteral("密钥盘容器不存在");           // 0x0B000035
const QString kKeyMismatch = QStringLiteral("密钥盘不匹配，解密失败");     // 0x2002
const QString kDecryptInitFailed = QStringLiteral("解密初始化失败");       // 0x2003
const QString kDecryptFailed = QStringLiteral("数据解密失败");             // 0x2004

constexpr qulonglong kSessionKey = 0x5E5;
const QByteArray kContent = QByteArrayLiteral("encrypted content, 32 bytes long");
const QByteArray kPlaintext = QByteArrayLiteral("plain\0text");

const QString kStartLine = QStringLiteral("[ZtCryptographic::WebZtDecode] start ");
const QRegularExpression kSpendTimeLine(
    QStringLiteral("^\\[ZtCryptographic::WebZtDecode\\] decode data spend time : \\[\\d+\\.\\d{6}\\]S$"));

QString base64(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

QByteArray envelopeFor(const QByteArray &encryptedKey, const QByteArray &content = kContent)
{
    EnvelopeParts parts;
    parts.issuerDer = derValue(0x30, QByteArray());
    parts.serialDer = QByteArrayLiteral("\x02\x01\x07");
    parts.encryptedKey = encryptedKey;
    parts.encryptedContent = content;
    return assembleEnvelope(parts);
}

// The packed key of countingPackedKey() as the envelope carries it.
QByteArray countingEncryptedKey()
{
    const QByteArray packed = countingPackedKey();
    return expectedCipherStructure(packed);
}

// The 180-byte blob for countingPackedKey(), written out field by field.
QByteArray countingBlob()
{
    const QByteArray packed = countingPackedKey();
    return QByteArray(32, '\0') + packed.mid(0, 32)     // x, right-aligned in 64
        + QByteArray(32, '\0') + packed.mid(32, 32)     // y, likewise
        + packed.mid(64, 32)                            // HASH
        + QByteArrayLiteral("\x10\x00\x00\x00")      // CipherLen 16, little-endian
        + packed.mid(96, 16);                           // Cipher
}

// IV zero (32), IVLen 0, PaddingType 1, FeedBitLen 0, each little-endian.
const QByteArray kRecord = QByteArray(32, '\0')
    + QByteArray::fromHex("00000000" "01000000" "00000000");

struct Decode
{
    LogSandbox logs;
    KeyHost host;
    AsnComponents asn{host.core};
    ZtCryptographic crypto;

    Decode()
    {
        host.key.sessionKeyHandle = kSessionKey;
        host.key.decryptInitAnswer = true;
        host.key.plaintext = kPlaintext;
    }

    // Opens the key and forgets what the host saw so far.
    void openKey()
    {
        ASSERT_TRUE(crypto.WebOpenKey());
        host.clearRecords();
        asn.clearRecords();
        SetCryptoErrorCode(kEarlierCode);
    }

    QStringList trace() const { return host.core.traceLines({"GetContainer"}); }

    QString importCall(const QByteArray &blob) const
    {
        return QStringLiteral("importSessionKey(257,0x401,%1,180)")
            .arg(QString::fromLatin1(blob.toHex()));
    }
};

QStringList successTrace(int base64Length, const QByteArray &blob, int contentLength)
{
    return {"D [WebZtDecode:305] start ",
            QStringLiteral("D [WebZtDecode:315]encode base64 data length : [%1]").arg(base64Length),
            "D [GetContainer:#]start",
            "D [GetContainer:#] end ",
            "D [WebZtDecode:343] ecc Cipher Blob  data = " + QString::fromLatin1(blob.toHex()),
            QStringLiteral("D [WebZtDecode:370]Encode Content data length : %1").arg(contentLength)};
}

} // namespace

TEST(EnvelopeDecryption, envelopeOpensToThePlaintextInBase64)
{
    Decode d;
    d.openKey();
    CryptoLogTap cryptoLog;
    const QString input = base64(envelopeFor(countingEncryptedKey()));

    EXPECT_EQ(d.crypto.WebZtDecode(input, 0x401), base64(kPlaintext));

    EXPECT_EQ(d.host.key.calls,
              (QStringList{"enumContainer()", "openContainer(enc)", "getContainerType(257)",
                           d.importCall(countingBlob()),
                           QStringLiteral("decryptInit(1509,%1)").arg(QString::fromLatin1(kRecord.toHex())),
                           QStringLiteral("decrypt(1509,%1,32)").arg(QString::fromLatin1(kContent.toHex()))}));
    EXPECT_EQ(d.trace(), successTrace(input.size(), countingBlob(), kContent.size()));
    const QStringList logged = cryptoLog.appendedMessages();
    ASSERT_EQ(logged.size(), 2);
    EXPECT_EQ(logged.at(0), kStartLine);
    EXPECT_TRUE(kSpendTimeLine.match(logged.at(1)).hasMatch()) << logged.at(1).toStdString();
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
    // Neither the container nor the session key is released.
    EXPECT_EQ(d.host.key.openHandles, QList<qulonglong>{KeyHost::kSm2Handle});
}

TEST(EnvelopeDecryption, pageCallsItByNameThroughTheMetaObject)
{
    Decode d;
    d.openKey();
    QString answer;
    ASSERT_TRUE(QMetaObject::invokeMethod(
        &d.crypto, "WebZtDecode", Qt::DirectConnection, Q_RETURN_ARG(QString, answer),
        Q_ARG(QString, base64(envelopeFor(countingEncryptedKey()))), Q_ARG(qulonglong, 0x401)));
    EXPECT_EQ(answer, base64(kPlaintext));
}

TEST(EnvelopeDecryption, blobDumpIs360HexDigitsWithTheLeftHalvesZero)
{
    Decode d;
    d.openKey();
    d.crypto.WebZtDecode(base64(envelopeFor(countingEncryptedKey())), 0x401);
    const QString prefix = QStringLiteral("D [WebZtDecode:343] ecc Cipher Blob  data = ");
    const QStringList lines = d.trace().filter(prefix);
    ASSERT_EQ(lines.size(), 1);
    const QString digits = lines.at(0).mid(prefix.size());
    EXPECT_EQ(digits.size(), 360);
    EXPECT_EQ(digits.mid(0, 64), QString(64, QLatin1Char('0')));
    EXPECT_EQ(digits.mid(128, 64), QString(64, QLatin1Char('0')));
}

TEST(EnvelopeDecryption, withoutAnOpenedKeyTheInputIsNotEvenDecoded)
{
    Decode d;
    d.host.core.clearRecords();
    CryptoLogTap cryptoLog;
    EXPECT_EQ(d.crypto.WebZtDecode(base64(envelopeFor(countingEncryptedKey())), 0x401),
              QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kNoKeyDevice);
    EXPECT_EQ(d.trace(), (QStringList{"D [WebZtDecode:305] start ",
                                      "E [WebZtDecode:310] not exist key, return false "}));
    EXPECT_TRUE(d.asn.documents.isEmpty());
    EXPECT_EQ(cryptoLog.appendedMessages(), QStringList{kStartLine});
}

TEST(EnvelopeDecryption, emptyInputIsHandedToTheEnvelopeReaderAsIs)
{
    Decode d;
    d.openKey();
    EXPECT_EQ(d.crypto.WebZtDecode(QString(), 0x401), QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kParseFailed);
    EXPECT_EQ(d.trace(), (QStringList{"D [WebZtDecode:305] start ",
                                      "D [WebZtDecode:315]encode base64 data length : [0]"}));
    EXPECT_EQ(d.asn.documentCalls(), QStringList{"1 open(0 bytes)"});
    EXPECT_TRUE(d.host.key.calls.isEmpty());
}

TEST(EnvelopeDecryption, envelopeThatDoesNotLoadStopsWithTheReadersCode)
{
    struct Row
    {
        const char *reason;
        QString input;
    };
    const Row rows[] = {
        {"text that is not Base64 at all", QStringLiteral("!!!! ????")},
        {"Base64 of bytes that are not DER", base64("no envelope here")},
        {"a SEQUENCE without content", base64(QByteArrayLiteral("\x30\x00"))},
        {"an envelope cut in half", base64(envelopeFor(countingEncryptedKey()).left(60))},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Decode d;
        d.openKey();
        CryptoLogTap cryptoLog;
        EXPECT_EQ(d.crypto.WebZtDecode(row.input, 0x401), QStringLiteral("false"));
        EXPECT_EQ(currentErrorMessage(), kParseFailed);
        EXPECT_EQ(d.trace().size(), 2); // start and length only
        EXPECT_TRUE(d.host.key.calls.isEmpty());
        EXPECT_EQ(cryptoLog.appendedMessages(), QStringList{kStartLine});
    }
}

TEST(EnvelopeDecryption, base64IsDecodedLeniently)
{
    Decode d;
    d.openKey();
    QString input = base64(envelopeFor(countingEncryptedKey()));
    for (int i = input.size() - 8; i > 0; i -= 8)
        input.insert(i, QStringLiteral("\r\n !"));
    EXPECT_EQ(d.crypto.WebZtDecode(input, 0x401), base64(kPlaintext));
}

TEST(EnvelopeDecryption, missingSm2ContainerReplacesTheLookupsCode)
{
    struct Row
    {
        const char *reason;
        QList<ScriptedKeyObject::Container> containers;
    };
    ScriptedKeyObject::Container rsa = ScriptedKeyObject::sm2("rsa", 0x102, QByteArray());
    rsa.type = 1;
    const Row rows[] = {
        {"no containers: the lookup sets its own code first", {}},
        {"only an RSA container", {rsa}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Decode d;
        d.openKey();
        d.host.key.containers = row.containers;
        EXPECT_EQ(d.crypto.WebZtDecode(base64(envelopeFor(countingEncryptedKey())), 0x401),
                  QStringLiteral("false"));
        EXPECT_EQ(currentErrorMessage(), kNoContainer);
        EXPECT_EQ(d.trace().last(), QStringLiteral("E [WebZtDecode:331] not found sm2 container, return false "));
        EXPECT_TRUE(d.host.key.calls.filter(QStringLiteral("importSessionKey")).isEmpty());
    }
}

TEST(EnvelopeDecryption, zeroSessionKeyMeansTheKeyDoesNotMatch)
{
    Decode d;
    d.openKey();
    d.host.key.sessionKeyHandle = 0;
    CryptoLogTap cryptoLog;
    EXPECT_EQ(d.crypto.WebZtDecode(base64(envelopeFor(countingEncryptedKey())), 0x401),
              QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kKeyMismatch);
    EXPECT_EQ(d.trace().last(), QStringLiteral("E [WebZtDecode:349]get hSessionKey handle is NULL"));
    EXPECT_EQ(d.host.key.calls.last(), d.importCall(countingBlob())); // decryptInit never called
    EXPECT_EQ(cryptoLog.appendedMessages(), QStringList{kStartLine});
}

TEST(EnvelopeDecryption, refusedDecryptInitFails)
{
    Decode d;
    d.openKey();
    d.host.key.decryptInitAnswer = false;
    EXPECT_EQ(d.crypto.WebZtDecode(base64(envelopeFor(countingEncryptedKey())), 0x401),
              QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kDecryptInitFailed);
    EXPECT_EQ(d.trace().last(), QStringLiteral("E [WebZtDecode:364]decrypt Init fail"));
    EXPECT_TRUE(d.host.key.calls.last().startsWith(QStringLiteral("decryptInit(1509,")));
}

TEST(EnvelopeDecryption, plaintextOfZeroBytesIsAFailure)
{
    Decode d;
    d.openKey();
    d.host.key.plaintext = QByteArray();
    CryptoLogTap cryptoLog;
    const QString input = base64(envelopeFor(countingEncryptedKey()));
    EXPECT_EQ(d.crypto.WebZtDecode(input, 0x401), QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kDecryptFailed);
    EXPECT_EQ(d.trace(), successTrace(input.size(), countingBlob(), kContent.size())
                             + QStringList{"E [WebZtDecode:374]decrypt data fail"});
    EXPECT_EQ(cryptoLog.appendedMessages(), QStringList{kStartLine});
}

TEST(EnvelopeDecryption, algorithmArgumentIsIgnored)
{
    for (qulonglong algorithm : {qulonglong(0), qulonglong(0x401), qulonglong(0x102),
                                 std::numeric_limits<qulonglong>::max()}) {
        SCOPED_TRACE(algorithm);
        Decode d;
        d.openKey();
        EXPECT_EQ(d.crypto.WebZtDecode(base64(envelopeFor(countingEncryptedKey())), algorithm),
                  base64(kPlaintext));
        EXPECT_TRUE(d.host.key.calls.contains(d.importCall(countingBlob())));
    }
}

TEST(EnvelopeDecryption, shortKeyBlockFillsWhatItHasAndLeavesZeros)
{
    Decode d;
    d.openKey();
    Sm2CiphertextFields fields{countingPackedKey().mid(1, 31), countingPackedKey().mid(32, 32),
                               countingPackedKey().mid(64, 32), countingPackedKey().mid(96, 16)};
    const QByteArray packed = fields.x + fields.y + fields.hash + fields.cipher; // 111 bytes
    const QByteArray blob = QByteArray(32, '\0') + packed.mid(0, 32) + QByteArray(32, '\0')
        + packed.mid(32, 64) + QByteArrayLiteral("\x10\x00\x00\x00") + packed.mid(96, 15)
        + QByteArray(1, '\0');
    ASSERT_EQ(blob.size(), 180);
    EXPECT_EQ(d.crypto.WebZtDecode(base64(envelopeFor(sm2CiphertextDer(fields))), 0x401),
              base64(kPlaintext));
    EXPECT_TRUE(d.host.key.calls.contains(d.importCall(blob))) << d.host.key.calls.join("\n").toStdString();
}

TEST(EnvelopeDecryption, envelopeWithoutEncryptedKeyHandsAnAllZeroBlob)
{
    Decode d;
    d.openKey();
    EnvelopeParts parts;
    parts.withEncryptedKey = false;
    parts.encryptedContent = kContent;
    QByteArray blob(180, '\0');
    blob[160] = '\x10';
    EXPECT_EQ(d.crypto.WebZtDecode(base64(assembleEnvelope(parts)), 0x401), base64(kPlaintext));
    EXPECT_TRUE(d.host.key.calls.contains(d.importCall(blob)));
}

TEST(EnvelopeDecryption, failureLeavesTheObjectReadyForTheNextEnvelope)
{
    Decode d;
    d.openKey();
    d.host.key.sessionKeyHandle = 0;
    EXPECT_EQ(d.crypto.WebZtDecode(base64(envelopeFor(countingEncryptedKey())), 0x401),
              QStringLiteral("false"));
    d.host.key.sessionKeyHandle = kSessionKey;
    EXPECT_EQ(d.crypto.WebZtDecode(base64(envelopeFor(countingEncryptedKey())), 0x401),
              base64(kPlaintext));
    EXPECT_EQ(currentErrorMessage(), kKeyMismatch); // a success never clears the code
}
