// Envelope requests: WebZtEncode checks only that the recipient certificate decodes from Base64
// to at least one byte. It answers "" for any such certificate, whatever content and algorithm
// come with it, and "false" with "certificate not found" for one that decodes to nothing.

#include "error_probe.h"
#include "qt_printers.h"
#include "crypto_error.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "stdout_capture.h"
#include "zt_cryptographic.h"

#include <QMetaObject>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <limits>
#include <ostream>

namespace {

const QString kCertificateNotFound = QStringLiteral("未发现证书"); // 0x0A00001C
const QStringList kEmptyCertificateTrace = {"D [WebZtEncode:256]param cert Data length = 0"};

// Set before each call that must leave the code alone; it has no message of its own.
constexpr qulonglong kSm4Ecb = 0x401;
constexpr qulonglong kLargestAlgId = std::numeric_limits<qulonglong>::max();

// Certificate texts that decode to nothing, each with why.
struct NoCertificate
{
    const char *reason;
    QString certData;
};

const NoCertificate kNoCertificates[] = {
    {"null text", QString()},
    {"empty text", QStringLiteral("")},
    {"only characters outside the alphabet", QStringLiteral("!!!!")},
    {"only blanks and line breaks", QStringLiteral(" \r\n\t ")},
};

// One test's world: the log sandbox first, a key host whose core receives the trace, and the
// object under test, with the records of its making cleared. No key is opened: none is needed.
struct Encode
{
    LogSandbox logs;
    KeyHost host;
    ZtCryptographic crypto;

    Encode() { host.core.clearRecords(); }
};

} // namespace

TEST(EnvelopeEncryption, certificateThatDecodesToNothingAnswersFalseWithCertificateNotFound)
{
    for (const NoCertificate &row : kNoCertificates) {
        SCOPED_TRACE(row.reason);
        Encode e;
        SetCryptoErrorCode(kEarlierCode);
        EXPECT_EQ(e.crypto.WebZtEncode(QStringLiteral("aGVsbG8="), row.certData, kSm4Ecb),
                  QStringLiteral("false"));
        EXPECT_EQ(currentErrorMessage(), kCertificateNotFound);
        EXPECT_EQ(e.host.core.traceLines(), kEmptyCertificateTrace);
    }
}

TEST(EnvelopeEncryption, anyDecodableCertificateAnswersEmptyAndKeepsTheErrorCode)
{
    const QString certificates[] = {
        QStringLiteral("MAMCAQc="),    // a small DER structure
        QStringLiteral("AA=="),        // a single zero byte
        QStringLiteral("+/+/AD4="),    // bytes that use the whole alphabet's tail
        QStringLiteral("MAM!CAQc=\n"), // stray characters are skipped
    };
    const QString contents[] = {QString(), QStringLiteral("aGVsbG8="),
                                QStringLiteral("not Base64 at all")};
    const qulonglong algIds[] = {0, kSm4Ecb, kLargestAlgId};

    Encode e;
    for (const QString &certData : certificates) {
        for (const QString &content : contents) {
            for (qulonglong algId : algIds) {
                SCOPED_TRACE(QStringLiteral("cert %1, content %2, algorithm %3")
                                 .arg(certData, content)
                                 .arg(algId)
                                 .toStdString());
                SetCryptoErrorCode(kEarlierCode);
                const QString answer = e.crypto.WebZtEncode(content, certData, algId);
                EXPECT_TRUE(answer.isEmpty());
                EXPECT_NE(answer, QStringLiteral("false"));
                EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
            }
        }
    }
    EXPECT_EQ(e.host.core.traceLines(), QStringList());
}

TEST(EnvelopeEncryption, acceptedCertificateAnswersEmptyThroughTheMetaObject)
{
    Encode e;
    SetCryptoErrorCode(kEarlierCode);
    QString answer = QStringLiteral("unset");
    ASSERT_TRUE(QMetaObject::invokeMethod(
        &e.crypto, "WebZtEncode", Qt::DirectConnection, Q_RETURN_ARG(QString, answer),
        Q_ARG(QString, QStringLiteral("aGVsbG8=")), Q_ARG(QString, QStringLiteral("MAMCAQc=")),
        Q_ARG(qulonglong, kSm4Ecb)));
    EXPECT_TRUE(answer.isEmpty());
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(EnvelopeEncryption, missingCertificateAnswersFalseThroughTheMetaObject)
{
    Encode e;
    QString answer;
    ASSERT_TRUE(QMetaObject::invokeMethod(
        &e.crypto, "WebZtEncode", Qt::DirectConnection, Q_RETURN_ARG(QString, answer),
        Q_ARG(QString, QStringLiteral("aGVsbG8=")), Q_ARG(QString, QStringLiteral("!!!!")),
        Q_ARG(qulonglong, kLargestAlgId)));
    EXPECT_EQ(answer, QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kCertificateNotFound);
    EXPECT_EQ(e.host.core.traceLines(), kEmptyCertificateTrace);
}

TEST(EnvelopeEncryption, requestMakesNoCallOnTheKeySide)
{
    Encode e;
    ASSERT_TRUE(e.crypto.WebOpenKey());
    e.host.clearRecords();
    EXPECT_TRUE(e.crypto.WebZtEncode(QString(), QStringLiteral("MAMCAQc="), kSm4Ecb).isEmpty());
    EXPECT_EQ(e.crypto.WebZtEncode(QString(), QString(), kSm4Ecb), QStringLiteral("false"));
    EXPECT_EQ(e.host.key.calls, QStringList());
    EXPECT_EQ(e.host.signatureManager.getZtKeyCalls, 0);
}

TEST(EnvelopeEncryption, missingCertificateWithoutCoreStillSetsTheCode)
{
    LogSandbox logs;
    StdoutCapture quiet; // the object made without a core reports its signature manager
    ZtCryptographic crypto;
    SetCryptoErrorCode(kEarlierCode);
    const QString answer = crypto.WebZtEncode(QString(), QString(), 0);
    quiet.text();
    EXPECT_EQ(answer, QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kCertificateNotFound);
}
