// The SM2 public point of a certificate: ZtGetPubKeyByCert asks a new host certificate component
// for the key data on every call and always answers 0x04 followed by 64 bytes (zero where the
// component gave nothing), except an empty array for an empty certificate. Its trace lines carry
// the fixed tags 191, 194, 206 and 218, which the host's log readers know.

#include "error_probe.h"
#include "qt_printers.h"
#include "crypto_error.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "stdout_capture.h"
#include "zt_cryptographic.h"

#include <QByteArray>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

const QString kCertificateProgId = QStringLiteral("ZTUTIL.ZtCerificate.1");
const QByteArray kCertificate = QByteArrayLiteral("\x30\x82\x01\x0a\x02\x01\x07");

// Set before each call: the function never touches the code.
// `count` bytes 0x01, 0x02, ... so that every position is told apart.
QByteArray counting(int count)
{
    QByteArray bytes;
    for (int i = 1; i <= count; ++i)
        bytes.append(static_cast<char>(i));
    return bytes;
}

// Byte arrays are compared as hexadecimal text, which reads well when a comparison fails.
std::string hex(const QByteArray &bytes)
{
    return bytes.toHex().toStdString();
}

QByteArray point(const QByteArray &coordinates)
{
    return QByteArray(1, '\x04') + coordinates;
}

QString startLine()
{
    return QStringLiteral("D [ZtGetPubKeyByCert:191] start ");
}

QString keyDataLine(const QByteArray &keyData)
{
    return QStringLiteral("D [ZtGetPubKeyByCert:206] get cert public key data = %1")
           + QString::fromLatin1(keyData.toHex());
}

QString resultLine(const QByteArray &result)
{
    return QStringLiteral("D [ZtGetPubKeyByCert:218] deal done public key data = %1")
           + QString::fromLatin1(result.toHex());
}

// One test's world: the log sandbox first, a host core that makes a new certificate component
// for every request (each accepting kCertificate and answering `publicKey`), and the object.
struct PublicKey
{
    LogSandbox logs;
    KeyHost host;
    ZtCryptographic crypto;
    QByteArray publicKey = counting(64);
    std::vector<QPointer<FakeCertificateComponent>> components;

    PublicKey()
    {
        host.core.provide(kCertificateProgId, [this] {
            auto *component = new FakeCertificateComponent;
            component->accepts = kCertificate;
            component->publicKey = publicKey;
            components.emplace_back(component);
            return component;
        });
        host.core.clearRecords();
        SetCryptoErrorCode(kEarlierCode);
    }
};

} // namespace

TEST(PublicKeyFromCertificate, emptyCertificateAnswersEmptyWithoutAskingTheHost)
{
    struct Row
    {
        const char *reason;
        QByteArray certificate;
    };
    const Row rows[] = {
        {"null array", QByteArray()},
        {"empty array", QByteArray("")},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        PublicKey p;
        EXPECT_TRUE(p.crypto.ZtGetPubKeyByCert(row.certificate).isEmpty());
        EXPECT_EQ(p.host.core.traceLines(),
                  (QStringList{startLine(), "D [ZtGetPubKeyByCert:194] pbtCertData is empty "}));
        EXPECT_TRUE(p.host.core.creations().isEmpty());
        EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
    }
}

TEST(PublicKeyFromCertificate, rejectedCertificateGivesThePrefixAndZeros)
{
    PublicKey p;
    const QByteArray other = QByteArrayLiteral("\x30\x01\x05");
    const QByteArray expected = point(QByteArray(64, '\0'));

    const QByteArray result = p.crypto.ZtGetPubKeyByCert(other);

    EXPECT_EQ(hex(result), hex(expected));
    EXPECT_EQ(p.host.core.traceLines(), (QStringList{startLine(), resultLine(expected)}));
    ASSERT_EQ(p.components.size(), 1u);
    EXPECT_EQ(p.components.at(0)->calls, QStringList{"open(300105)"}); // no key data asked
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(PublicKeyFromCertificate, sixtyFourBytesOfKeyDataFollowThePrefixUnchanged)
{
    PublicKey p;
    const QByteArray expected = point(p.publicKey);

    const QByteArray result = p.crypto.ZtGetPubKeyByCert(kCertificate);

    EXPECT_EQ(hex(result), hex(expected));
    EXPECT_EQ(result.size(), 65);
    ASSERT_EQ(p.components.size(), 1u);
    EXPECT_EQ(p.components.at(0)->calls,
              (QStringList{"open(3082010a020107)", "getPublicKeyData()"}));
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(PublicKeyFromCertificate, acceptedCertificateTracesKeyDataAndResult)
{
    PublicKey p;
    const QByteArray result = p.crypto.ZtGetPubKeyByCert(kCertificate);
    EXPECT_EQ(p.host.core.traceLines(),
              (QStringList{startLine(), keyDataLine(p.publicKey), resultLine(result)}));
}

TEST(PublicKeyFromCertificate, keyDataLineKeepsTheLiteralPlaceholderBeforeTheHex)
{
    PublicKey p;
    p.publicKey = QByteArrayLiteral("\xab\xcd");
    p.crypto.ZtGetPubKeyByCert(kCertificate);
    ASSERT_EQ(p.host.core.traces().size(), 3);
    EXPECT_EQ(p.host.core.traces().at(1).text,
              QStringLiteral("[ZtGetPubKeyByCert:206] get cert public key data = %1abcd"));
}

TEST(PublicKeyFromCertificate, resultLineShowsAllSixtyFiveBytesInHex)
{
    PublicKey p;
    p.publicKey = QByteArrayLiteral("\xab\xcd");
    p.crypto.ZtGetPubKeyByCert(kCertificate);
    ASSERT_EQ(p.host.core.traces().size(), 3);
    EXPECT_EQ(p.host.core.traces().at(2).text,
              QStringLiteral("[ZtGetPubKeyByCert:218] deal done public key data = %1")
                  + QStringLiteral("04abcd") + QString(124, QLatin1Char('0')));
}

TEST(PublicKeyFromCertificate, alreadyPrefixedPointHasItsLastByteDropped)
{
    PublicKey p;
    p.publicKey = point(counting(64)); // 04 01 02 ... 40
    const QByteArray result = p.crypto.ZtGetPubKeyByCert(kCertificate);
    EXPECT_EQ(hex(result), hex(point(point(counting(63)))));
    EXPECT_EQ(result.size(), 65);
}

TEST(PublicKeyFromCertificate, shortKeyDataIsCopiedAndTheRestLeftZero)
{
    struct Row
    {
        const char *reason;
        int length;
    };
    const Row rows[] = {
        {"nothing at all", 0},
        {"a single byte", 1},
        {"ten bytes", 10},
        {"one short of both coordinates", 63},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        PublicKey p;
        p.publicKey = counting(row.length);
        const QByteArray expected = point(counting(row.length) + QByteArray(64 - row.length, '\0'));
        EXPECT_EQ(hex(p.crypto.ZtGetPubKeyByCert(kCertificate)), hex(expected));
        EXPECT_EQ(p.host.core.traceLines(),
                  (QStringList{startLine(), keyDataLine(p.publicKey), resultLine(expected)}));
    }
}

TEST(PublicKeyFromCertificate, missingComponentPrintsItsEmptyIdAndGivesTheZeroPoint)
{
    PublicKey p;
    p.host.core.withdraw(kCertificateProgId);
    const QByteArray expected = point(QByteArray(64, '\0'));
    StdoutCapture out;
    const QByteArray result = p.crypto.ZtGetPubKeyByCert(kCertificate);
    const QByteArray printed = out.text();

    EXPECT_EQ(printed, QByteArray("createComponentObject =   fail"));
    EXPECT_EQ(hex(result), hex(expected));
    EXPECT_EQ(p.host.core.traceLines(), (QStringList{startLine(), resultLine(expected)}));
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(PublicKeyFromCertificate, everyCallCreatesANewComponentWithAnEmptyClassId)
{
    PublicKey p;
    const QByteArray first = p.crypto.ZtGetPubKeyByCert(kCertificate);
    const QByteArray second = p.crypto.ZtGetPubKeyByCert(kCertificate);
    EXPECT_EQ(hex(second), hex(first));

    ASSERT_EQ(p.host.core.creations().size(), 2);
    for (const FakeCore::Creation &creation : p.host.core.creations()) {
        EXPECT_EQ(creation.progId, kCertificateProgId);
        EXPECT_TRUE(creation.classId.isEmpty());
    }
    ASSERT_EQ(p.components.size(), 2u);
    EXPECT_NE(p.components.at(0).data(), p.components.at(1).data());
    for (const auto &component : p.components)
        EXPECT_EQ(component->calls.size(), 2);
}

TEST(PublicKeyFromCertificate, componentOutlivesTheCall)
{
    PublicKey p;
    p.crypto.ZtGetPubKeyByCert(kCertificate);
    ASSERT_EQ(p.components.size(), 1u);
    EXPECT_FALSE(p.components.at(0).isNull());
}
