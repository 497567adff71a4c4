// zthost doctor as a user runs it: every check in order, exact findings and advice, exit 0 only
// when nothing failed, and the same findings as JSON.
#include "cli_process.h"

#include "../host/test_certificates.h"

#include <softskf/provision.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {
const QString kAlpha = QStringLiteral("alpha");

QStringList linesOf(const CliRun &run)
{
    QStringList lines = run.outText().split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

QStringList keysOf(const QJsonObject &object)
{
    QStringList keys = object.keys();
    keys.sort();
    return keys;
}

QString encryptionCertificatePath(const QString &root, const QString &device)
{
    return QStringLiteral("%1/%2/SOFTAPP/SM2Container/enc.cer").arg(root, device);
}

void replaceFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}
} // namespace

class CliDoctor : public CliTest
{
protected:
    // The doctor with TMPDIR in the work folder, so the test sees the core log's folder.
    CliRun doctor(const QStringList &more = {})
    {
        QDir().mkpath(tempDir());
        return run(QStringList{"doctor"} + more, {{QStringLiteral("TMPDIR"), tempDir()}});
    }

    QJsonObject doctorJson(const QStringList &more = {}, int expectedExit = 0)
    {
        const CliRun result = doctor(QStringList{"--json"} + more);
        EXPECT_EQ(result.exitCode, expectedExit) << result.out.constData() << result.err.constData();
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(result.out, &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << result.out.constData();
        return document.object();
    }

    static QJsonObject check(const QJsonObject &document, const QString &name)
    {
        for (const QJsonValue &value : document.value(QStringLiteral("checks")).toArray()) {
            if (value.toObject().value(QStringLiteral("name")).toString() == name)
                return value.toObject();
        }
        ADD_FAILURE() << "no check " << name.toStdString();
        return QJsonObject();
    }

    QString tempDir() const { return workFile(QStringLiteral("tmp")); }
};

TEST_F(CliDoctor, allChecksPassOnAFreshKey)
{
    provision(kAlpha);
    const CliRun result = doctor();
    EXPECT_EQ(result.exitCode, 0) << result.out.constData();
    EXPECT_EQ(result.err, QByteArray());
    const QStringList lines = linesOf(result);
    ASSERT_GE(lines.size(), 9);
    const QString plugin = QStringLiteral(ZT_PLUGIN_PATH);
    const QString file = QFileInfo(QFileInfo(plugin).canonicalFilePath()).fileName();
    const QString version = file.mid(QStringLiteral("libZtCryptographic.so.").size());
    EXPECT_EQ(lines.at(0), QStringLiteral("zthost doctor: the plug-in, the smart-key driver, the "
                                          "key devices, the encryption certificate, the log "
                                          "folders"));
    EXPECT_EQ(lines.at(2), QStringLiteral("  check         outcome   detail"));
    EXPECT_EQ(lines.at(3), QStringLiteral("  plug-in       ok        %1: loads, initialises and makes "
                                          "its scriptable object; version %2 (%3)")
                               .arg(plugin, version, file));
    EXPECT_TRUE(lines.at(4).startsWith(
        QStringLiteral("  driver        ok        %1: loads; ").arg(QStringLiteral(ZT_SOFTSKF_PATH))))
        << lines.at(4).toStdString();
    EXPECT_FALSE(result.outText().contains(QStringLiteral("the host needs")));
    EXPECT_TRUE(lines.contains(QStringLiteral("  devices       ok        \"alpha\": application "
                                              "SOFTAPP, user PIN 6 of 6 tries, containers "
                                              "SM2Container (SM2)")))
        << result.out.constData();
    EXPECT_TRUE(result.outText().contains(
        QStringLiteral("\n  certificate   ok        \"alpha\" SM2Container: CN=alpha, SM2 key, valid ")));
    EXPECT_TRUE(result.outText().contains(
        QStringLiteral(", key usage keyEncipherment, dataEncipherment\n")));
    EXPECT_TRUE(result.outText().contains(
        QStringLiteral("\n  logs          ok        core log off (no folder %1/ardlow); crypto log ")
            .arg(tempDir())));
    EXPECT_FALSE(result.outText().contains(QStringLiteral("what to do")));
    EXPECT_EQ(lines.last(), QStringLiteral("all 5 checks passed"));
}

TEST_F(CliDoctor, jsonHasExactlyTheDocumentedFields)
{
    provision(kAlpha);
    const QJsonObject document = doctorJson();
    EXPECT_EQ(keysOf(document), (QStringList{"checks", "passed"}));
    EXPECT_EQ(document.value(QStringLiteral("passed")), QJsonValue(true));
    QStringList names;
    for (const QJsonValue &value : document.value(QStringLiteral("checks")).toArray()) {
        const QJsonObject entry = value.toObject();
        names << entry.value(QStringLiteral("name")).toString();
        EXPECT_EQ(keysOf(entry), (QStringList{"advice", "detail", "facts", "name", "notes", "outcome"}));
        EXPECT_EQ(entry.value(QStringLiteral("outcome")).toString(), QStringLiteral("ok"));
        EXPECT_EQ(entry.value(QStringLiteral("advice")).toString(), QString());
    }
    EXPECT_EQ(names, (QStringList{"plug-in", "driver", "devices", "certificate", "logs"}));

    EXPECT_EQ(keysOf(check(document, "plug-in").value("facts").toObject()),
              (QStringList{"file", "path", "version"}));
    const QJsonObject driver = check(document, "driver").value("facts").toObject();
    EXPECT_EQ(keysOf(driver), (QStringList{"missingNeeded", "missingOptional", "missingUnused",
                                           "path", "present", "standardFunctions"}));
    EXPECT_EQ(driver.value("path").toString(), QStringLiteral(ZT_SOFTSKF_PATH));
    EXPECT_EQ(driver.value("standardFunctions").toInt(), 78);
    EXPECT_EQ(driver.value("missingNeeded").toArray(), QJsonArray());
    EXPECT_EQ(driver.value("missingOptional").toArray(), QJsonArray());
    EXPECT_EQ(driver.value("present").toInt() + driver.value("missingUnused").toArray().size(), 78);

    const QJsonArray devices
        = check(document, "devices").value("facts").toObject().value("devices").toArray();
    const QJsonObject alpha{{"name", "alpha"},
                            {"application", "SOFTAPP"},
                            {"triesLeft", 6},
                            {"maxTries", 6},
                            {"locked", false},
                            {"containers", QJsonArray{QJsonObject{{"name", "SM2Container"},
                                                                  {"type", "SM2"}}}}};
    EXPECT_EQ(devices, QJsonArray{alpha});

    const QJsonObject certificate = check(document, "certificate").value("facts").toObject();
    EXPECT_EQ(keysOf(certificate), (QStringList{"from", "keyType", "keyUsage", "notAfter",
                                                "notBefore", "problems", "subject"}));
    EXPECT_EQ(certificate.value("from").toString(), QStringLiteral("\"alpha\" SM2Container"));
    EXPECT_EQ(certificate.value("subject").toString(), QStringLiteral("CN=alpha"));
    EXPECT_EQ(certificate.value("keyType").toString(), QStringLiteral("SM2"));
    EXPECT_EQ(certificate.value("keyUsage").toArray(),
              (QJsonArray{"keyEncipherment", "dataEncipherment"}));
    EXPECT_EQ(certificate.value("problems").toArray(), QJsonArray());

    const QJsonArray folders = check(document, "logs").value("facts").toObject().value("folders").toArray();
    ASSERT_EQ(folders.size(), 2);
    EXPECT_EQ(folders.at(0).toObject(),
              (QJsonObject{{"log", "core log"},
                           {"folder", QStringLiteral("%1/ardlow").arg(tempDir())},
                           {"state", "off"}}));
    EXPECT_EQ(folders.at(1).toObject().value("folder").toString(), QStringLiteral("/tmp/ZtEncodeLog"));
}

TEST_F(CliDoctor, driverLackingFunctionsTheHostNeedsNamesThemAndSkipsTheDevices)
{
    provision(kAlpha);
    const CliRun result = doctor({"--skf", ZT_PARTIAL_DRIVER});
    EXPECT_EQ(result.exitCode, 1);
    const QStringList lines = linesOf(result);
    EXPECT_EQ(lines.at(4), QStringLiteral("  driver        FAILED    %1: loads; 3 of the standard's "
                                          "78 functions")
                               .arg(QStringLiteral(ZT_PARTIAL_DRIVER)));
    EXPECT_TRUE(lines.contains(QStringLiteral(
        "                          what to do: the host cannot drive a key without SKF_VerifyPIN, "
        "SKF_ClearSecureState, SKF_EnumApplication, SKF_OpenApplication, SKF_CloseApplication, "
        "SKF_OpenContainer, SKF_CloseContainer, SKF_EnumContainer, SKF_GetContainerType, "
        "SKF_ExportCertificate, SKF_ImportSessionKey, SKF_DecryptInit, SKF_Decrypt, "
        "SKF_CloseHandle: use a driver that exports them")))
        << result.out.constData();
    EXPECT_TRUE(lines.contains(QStringLiteral("  devices       skipped   the driver does not load")));
    EXPECT_TRUE(lines.contains(QStringLiteral("  certificate   skipped   the driver does not load")));
    EXPECT_EQ(lines.last(), QStringLiteral("1 of 5 checks FAILED: driver"));

    const QJsonObject driver
        = check(doctorJson({"--skf", ZT_PARTIAL_DRIVER}, 1), "driver").value("facts").toObject();
    EXPECT_EQ(driver.value("missingNeeded").toArray(),
              (QJsonArray{"SKF_VerifyPIN", "SKF_ClearSecureState", "SKF_EnumApplication",
                          "SKF_OpenApplication", "SKF_CloseApplication", "SKF_OpenContainer",
                          "SKF_CloseContainer", "SKF_EnumContainer", "SKF_GetContainerType",
                          "SKF_ExportCertificate", "SKF_ImportSessionKey", "SKF_DecryptInit",
                          "SKF_Decrypt", "SKF_CloseHandle"}));
    EXPECT_EQ(driver.value("missingOptional").toArray(),
              (QJsonArray{"SKF_ChangePIN", "SKF_GetPINInfo", "SKF_UnblockPIN"}));
    EXPECT_EQ(driver.value("present").toInt(), 3);
}

#ifdef ZT_DRIVER_WITHOUT_PIN_MANAGEMENT
TEST_F(CliDoctor, driverLackingOnlyPinManagementIsAWarningNotAFailure)
{
    provision(kAlpha);
    const CliRun result = doctor({"--skf", ZT_DRIVER_WITHOUT_PIN_MANAGEMENT});
    EXPECT_EQ(result.exitCode, 0) << result.out.constData();
    const QStringList lines = linesOf(result);
    EXPECT_TRUE(lines.at(4).startsWith(QStringLiteral("  driver        warning   ")));
    EXPECT_EQ(lines.at(5), QStringLiteral("                          lacks, for PIN tries, passwd "
                                          "and unblock: SKF_ChangePIN, SKF_UnblockPIN"));
    EXPECT_TRUE(lines.contains(QStringLiteral("                          what to do: keys open and "
                                              "decrypt; what needs SKF_ChangePIN, SKF_UnblockPIN "
                                              "will say the driver lacks it")));
    EXPECT_EQ(lines.last(), QStringLiteral("all 5 checks passed (1 with a warning)"));
}
#endif

TEST_F(CliDoctor, noDeviceSaysHowToMakeOne)
{
    const CliRun result = doctor();
    EXPECT_EQ(result.exitCode, 1);
    const QStringList lines = linesOf(result);
    EXPECT_TRUE(lines.contains(QStringLiteral("  devices       FAILED    the driver lists no key device")));
    EXPECT_TRUE(lines.contains(QStringLiteral("                          what to do: plug in a key, or "
                                              "make a software key: zthost keygen --name NAME")));
    EXPECT_TRUE(lines.contains(QStringLiteral("  certificate   skipped   no key device to read it from")));
    EXPECT_EQ(lines.last(), QStringLiteral("1 of 5 checks FAILED: devices"));
}

TEST_F(CliDoctor, lockedPinFailsTheDevicesWithHowToUnblock)
{
    provision(kAlpha, 1);
    run({"call", "WebVerifyPin", kWrongPin});
    const CliRun result = doctor();
    EXPECT_EQ(result.exitCode, 1);
    const QStringList lines = linesOf(result);
    EXPECT_TRUE(lines.contains(QStringLiteral("  devices       FAILED    \"alpha\": application SOFTAPP, "
                                              "user PIN locked (0 of 1 tries), containers "
                                              "SM2Container (SM2)")))
        << result.out.constData();
    EXPECT_TRUE(lines.contains(QStringLiteral("                          the user PIN of \"alpha\" is locked")));
    EXPECT_TRUE(lines.contains(QStringLiteral("                          what to do: give it a new PIN "
                                              "with the admin PIN: zthost unblock")));
    EXPECT_EQ(lines.last(), QStringLiteral("1 of 5 checks FAILED: devices"));
}

TEST_F(CliDoctor, expiredEncryptionCertificateFailsWithItsDate)
{
    provision(kAlpha);
    certtest::Key key = certtest::sm2Key();
    certtest::Certificate certificate = certtest::certificateFor(key.get());
    ASSERT_EQ(ASN1_TIME_set_string(X509_getm_notBefore(certificate.get()), "20200101000000Z"), 1);
    ASSERT_EQ(ASN1_TIME_set_string(X509_getm_notAfter(certificate.get()), "20210101000000Z"), 1);
    ASSERT_GT(X509_sign(certificate.get(), key.get(), EVP_sm3()), 0);
    replaceFile(encryptionCertificatePath(root(), kAlpha), certtest::der(certificate.get()));

    const CliRun result = doctor();
    EXPECT_EQ(result.exitCode, 1);
    const QStringList lines = linesOf(result);
    EXPECT_TRUE(lines.contains(QStringLiteral("  certificate   FAILED    \"alpha\" SM2Container: CN=host "
                                              "test, SM2 key, valid 2020-01-01T00:00:00Z to "
                                              "2021-01-01T00:00:00Z, key usage unrestricted")))
        << result.out.constData();
    EXPECT_TRUE(lines.contains(QStringLiteral("                          it expired on 2021-01-01T00:00:00Z")));
    EXPECT_TRUE(lines.contains(QStringLiteral("                          what to do: senders will "
                                              "refuse it: have it renewed, or make a new key")));
    EXPECT_EQ(lines.last(), QStringLiteral("1 of 5 checks FAILED: certificate"));
}

TEST_F(CliDoctor, encryptionCertificateWithoutKeyEnciphermentFails)
{
    provision(kAlpha);
    std::vector<unsigned char> signing;
    std::string error;
    ASSERT_TRUE(softskf::getCertificate(root().toStdString(), "alpha", kContainer,
                                        softskf::CertificateUsage::Signing, &signing, &error));
    replaceFile(encryptionCertificatePath(root(), kAlpha),
                QByteArray(reinterpret_cast<const char *>(signing.data()), int(signing.size())));

    const QJsonObject certificate = check(doctorJson({}, 1), "certificate");
    EXPECT_EQ(certificate.value("outcome").toString(), QStringLiteral("failed"));
    EXPECT_EQ(certificate.value("notes").toArray(),
              (QJsonArray{"its key usage (digitalSignature, nonRepudiation) does not include "
                          "keyEncipherment"}));
    EXPECT_EQ(certificate.value("advice").toString(),
              QStringLiteral("senders' software may refuse to seal to it: get an encryption "
                             "certificate that allows keyEncipherment"));
}

TEST_F(CliDoctor, logFolderThatIsAFileFailsWithWhatToDo)
{
    provision(kAlpha);
    QDir().mkpath(tempDir());
    replaceFile(QDir(tempDir()).filePath(QStringLiteral("ardlow")), QByteArrayLiteral("not a folder"));
    const CliRun result = doctor();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.outText().contains(
        QStringLiteral("\n  logs          FAILED    core log: %1/ardlow is not a folder; ").arg(tempDir())))
        << result.out.constData();
    EXPECT_TRUE(result.outText().contains(
        QStringLiteral("\n                          what to do: a log folder must be a writable "
                       "folder: fix its mode, or remove it to switch that log off\n")));
    EXPECT_EQ(linesOf(result).last(), QStringLiteral("1 of 5 checks FAILED: logs"));
}
