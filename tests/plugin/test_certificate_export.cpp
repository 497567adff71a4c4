// Certificate export: WebGetCertData hands the encryption certificate of the opened key's first
// SM2 container to the page as Base64, whatever certificate type the page asks for, and answers
// "false" with the matching error code when there is no such container or no certificate.

#include "error_probe.h"
#include "qt_printers.h"
#include "crypto_error.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "zt_cryptographic.h"

#include <QMetaObject>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <ostream>

namespace {

// Bytes chosen so that their Base64 uses both "+" and "/" and ends in padding.
const QByteArray kCertificate = QByteArrayLiteral("\xfb\xff\xbf\x00\x3e");
const QString kCertificateBase64 = QStringLiteral("+/+/AD4=");

const QString kContainerMissing = QStringLiteral("密钥盘容器不存在");  // 0x0B000035
const QString kCertificateUnread = QStringLiteral("获取加密证书失败"); // 0x2008

// One export from the key host's single SM2 container, handle 0x101.
const QStringList kExportCalls = {"enumContainer()", "openContainer(enc)",
                                  "getContainerType(257)", "exportCertificate(257,false)"};

ScriptedKeyObject::Container rsaContainer(const char *name, qulonglong handle)
{
    ScriptedKeyObject::Container c;
    c.name = QString::fromLatin1(name);
    c.handle = handle;
    c.type = 1;
    c.encryptionCertificate = kCertificate;
    return c;
}

// One test's world: the log sandbox first, a key host whose SM2 container holds kCertificate,
// and the object under test, with the records of its making cleared.
struct Export
{
    LogSandbox logs;
    KeyHost host;
    ZtCryptographic crypto;

    Export()
    {
        host.key.containers = {
            ScriptedKeyObject::sm2(QStringLiteral("enc"), KeyHost::kSm2Handle, kCertificate)};
        host.core.clearRecords();
    }

    // Opens the key and forgets the calls that took.
    void openKey()
    {
        ASSERT_TRUE(crypto.WebOpenKey());
        host.core.clearRecords();
        host.key.calls.clear();
    }

    QStringList trace() const { return host.core.traceLines({"WebGetCertData", "GetContainer"}); }
};

} // namespace

TEST(CertificateExport, exportAnswersThroughTheMetaObject)
{
    Export e;
    e.openKey();
    QString answer;
    ASSERT_TRUE(QMetaObject::invokeMethod(&e.crypto, "WebGetCertData", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, answer),
                                          Q_ARG(QString, QStringLiteral("0"))));
    EXPECT_EQ(answer, kCertificateBase64);
}

TEST(CertificateExport, everyCertificateTypeYieldsTheEncryptionCertificate)
{
    struct Row
    {
        const char *certtype;
        const char *reason;
    };
    const Row rows[] = {
        {"0", "zero"},
        {"1", "one, the signature certificate's number elsewhere"},
        {"2", "two"},
        {"abc", "no number at all"},
        {"", "empty"},
    };
    Export e;
    e.openKey();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        e.host.key.calls.clear();
        EXPECT_EQ(e.crypto.WebGetCertData(QString::fromLatin1(row.certtype)), kCertificateBase64);
        EXPECT_EQ(e.host.key.calls, kExportCalls);
    }
}

TEST(CertificateExport, signatureCertificateIsNeverHandedOut)
{
    Export e;
    e.host.key.containers.first().signatureCertificate = QByteArrayLiteral("\x30\x00");
    e.openKey();
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("1")), kCertificateBase64);
}

TEST(CertificateExport, successTracesStartAndEndAndKeepsTheErrorCode)
{
    Export e;
    e.openKey();
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("0")), kCertificateBase64);
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
    EXPECT_EQ(e.trace(), (QStringList{"D [WebGetCertData:#] start ", "D [GetContainer:#]start",
                                      "D [GetContainer:#] end ", "D [WebGetCertData:#] end "}));
}

TEST(CertificateExport, exportWritesNothingToTheCryptoLog)
{
    Export e;
    e.openKey();
    CryptoLogTap cryptoLog;
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("0")), kCertificateBase64);
    EXPECT_EQ(cryptoLog.appendedMessages(), QStringList());
}

TEST(CertificateExport, beforeOpenKeyAnswersFalseWithContainerMissing)
{
    Export e;
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("0")), QStringLiteral("false"));
    // The container search set 1000 first; the export overwrites it.
    EXPECT_EQ(currentErrorMessage(), kContainerMissing);
    EXPECT_EQ(e.trace(), (QStringList{"D [WebGetCertData:#] start ", "D [GetContainer:#]start",
                                      "D [GetContainer:#] userKey is NULL ",
                                      "D [WebGetCertData:#] get sm2 container fail "}));
    EXPECT_EQ(e.host.key.calls, QStringList());
}

TEST(CertificateExport, afterFailedOpenKeyAnswersFalseWithContainerMissing)
{
    Export e;
    e.host.detachKeys();
    ASSERT_FALSE(e.crypto.WebOpenKey());
    e.host.core.clearRecords();
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("0")), QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kContainerMissing);
    EXPECT_EQ(e.trace(), (QStringList{"D [WebGetCertData:#] start ", "D [GetContainer:#]start",
                                      "D [GetContainer:#] userKey is NULL ",
                                      "D [WebGetCertData:#] get sm2 container fail "}));
}

TEST(CertificateExport, emptyContainerListAnswersFalseWithContainerMissing)
{
    Export e;
    e.host.key.containers.clear();
    e.openKey();
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("0")), QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kContainerMissing); // replaces 0x0D000041
    EXPECT_EQ(e.trace(), (QStringList{"D [WebGetCertData:#] start ", "D [GetContainer:#]start",
                                      "D [GetContainer:#] get container count = 0 ",
                                      "D [WebGetCertData:#] get sm2 container fail "}));
}

TEST(CertificateExport, onlyRsaContainerAnswersFalseAndIsClosedAgain)
{
    Export e;
    e.host.key.containers = {rsaContainer("rsa", 0x11)};
    e.openKey();
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("0")), QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kContainerMissing);
    EXPECT_EQ(e.host.key.calls, (QStringList{"enumContainer()", "openContainer(rsa)",
                                             "getContainerType(17)", "closeContainer(17)"}));
    EXPECT_EQ(e.host.key.openHandles, QList<qulonglong>());
    EXPECT_EQ(e.trace(), (QStringList{"D [WebGetCertData:#] start ", "D [GetContainer:#]start",
                                      "D [WebGetCertData:#] get sm2 container fail "}));
}

TEST(CertificateExport, sm2ContainerWithoutEncryptionCertificateAnswersFalseAndStaysOpen)
{
    Export e;
    e.host.key.containers.first().encryptionCertificate.clear();
    e.host.key.containers.first().signatureCertificate = kCertificate;
    e.openKey();
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("0")), QStringLiteral("false"));
    EXPECT_EQ(currentErrorMessage(), kCertificateUnread);
    EXPECT_EQ(e.host.key.calls, kExportCalls);
    EXPECT_EQ(e.host.key.openHandles, QList<qulonglong>{KeyHost::kSm2Handle});
    EXPECT_EQ(e.trace(), (QStringList{"D [WebGetCertData:#] start ", "D [GetContainer:#]start",
                                      "D [GetContainer:#] end ",
                                      "E [WebGetCertData:#] export container certData fail "}));
}

TEST(CertificateExport, successiveExportsAnswerTheSameAndOpenTheContainerEachTime)
{
    Export e;
    e.openKey();
    const QString first = e.crypto.WebGetCertData(QStringLiteral("0"));
    const QString second = e.crypto.WebGetCertData(QStringLiteral("0"));
    EXPECT_EQ(first, kCertificateBase64);
    EXPECT_EQ(second, first);
    EXPECT_EQ(e.host.key.calls, kExportCalls + kExportCalls);
    // Never closed: each call leaves one more opening of the same container.
    EXPECT_EQ(e.host.key.openHandles,
              (QList<qulonglong>{KeyHost::kSm2Handle, KeyHost::kSm2Handle}));
}

TEST(CertificateExport, closedKeyIsStillAskedForItsCertificate)
{
    Export e;
    e.openKey();
    ASSERT_TRUE(e.crypto.WebCloseKey());
    e.host.key.calls.clear();
    EXPECT_EQ(e.crypto.WebGetCertData(QStringLiteral("0")), kCertificateBase64);
    EXPECT_EQ(e.host.key.calls, kExportCalls);
}
