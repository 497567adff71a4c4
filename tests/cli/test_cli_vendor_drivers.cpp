// zthost with drivers built from headers that are not the standard's, as vendors ship them: the
// software device built with 8-byte ULONG and BOOL (ztsoftskf_wide), and the same without the
// optional PIN functions (ztsoftskf_wide_sparse). Every command that drives a key runs through
// them with the width detected, set on the command line, in the environment and in the
// configuration file; a wrong or unknown profile is refused with what to do.
#include "cli_process.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

const QString kWide = QStringLiteral(ZT_WIDE_DRIVER_PATH);
const QString kSparse = QStringLiteral(ZT_WIDE_SPARSE_DRIVER_PATH);
constexpr const char *kNewPin = "cli-new-8642";
const QByteArray kText = QByteArrayLiteral("sealed for a key behind a wide driver\n");
const QString kDeviceTable = QStringLiteral("device  application  user PIN tries left\n"
                                            "alpha   SOFTAPP      %1\n");

} // namespace

class CliVendorDrivers : public CliTest
{
protected:
    // A device, its certificate in "alpha.cert" and an envelope of kText in "text.env".
    void makeDeviceAndEnvelope()
    {
        provision(QStringLiteral("alpha"));
        writeWorkFile(QStringLiteral("alpha.cert"),
                      storedCertificate(QStringLiteral("alpha")).toBase64() + '\n');
        writeWorkFile(QStringLiteral("text.txt"), kText);
        const CliRun sealed = run({"encrypt", "--cert", workFile(QStringLiteral("alpha.cert")),
                                   "--in", workFile(QStringLiteral("text.txt")), "--out",
                                   workFile(QStringLiteral("text.env"))});
        ASSERT_EQ(sealed.exitCode, 0) << sealed.err.constData();
    }

    // zthost with a configuration folder of the test's own and no profile in the environment,
    // unless `environment` gives one.
    CliRun zthost(const QStringList &arguments, QHash<QString, QString> environment = {})
    {
        if (!environment.contains(QStringLiteral("XDG_CONFIG_HOME")))
            environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                               workFile(QStringLiteral("config")));
        if (!environment.contains(QStringLiteral("ZTHOST_DRIVER_PROFILE")))
            environment.insert(QStringLiteral("ZTHOST_DRIVER_PROFILE"), QString());
        return run(arguments, environment);
    }

    CliRun decrypt(const QString &driver, const char *pin, const QStringList &more = {})
    {
        return zthost(QStringList{"decrypt", "--skf", driver, "--pin", pin, "--in",
                                  workFile(QStringLiteral("text.env"))}
                      + more);
    }

    void writeConfiguration(const QByteArray &text)
    {
        ASSERT_TRUE(QDir().mkpath(workFile(QStringLiteral("config/zthost"))));
        writeWorkFile(QStringLiteral("config/zthost/zthost.conf"), text);
    }
};

TEST_F(CliVendorDrivers, demoRunsWholeThroughAWideDriverDetectedAndSet)
{
    for (const QStringList &profile : {QStringList(), QStringList{"--driver-profile", "wide"}}) {
        SCOPED_TRACE(profile.join(' ').toStdString());
        const CliRun demo = zthost(QStringList{"demo", "--skf", kWide} + profile);
        EXPECT_EQ(demo.exitCode, 0) << demo.out.constData() << demo.err.constData();
        EXPECT_TRUE(demo.outText().contains(QStringLiteral("  driver        %1\n").arg(kWide)));
        EXPECT_TRUE(demo.outText().endsWith(QStringLiteral("\n")));
        EXPECT_TRUE(demo.outText().contains(QStringLiteral("\nall 9 steps ok in ")))
            << demo.out.constData();
    }
}

TEST_F(CliVendorDrivers, keygenCertEncryptDecryptRoundTripThroughAWideDriver)
{
    const CliRun made = zthost({"keygen", "--name", "alpha", "--pin", kUserPin, "--admin-pin",
                                kAdminPin, "--skf", kWide});
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    const CliRun cert =
        zthost({"cert", "--skf", kWide, "--out", workFile(QStringLiteral("alpha.cert"))});
    ASSERT_EQ(cert.exitCode, 0) << cert.err.constData();
    EXPECT_EQ(readWorkFile(QStringLiteral("alpha.cert")),
              storedCertificate(QStringLiteral("alpha")).toBase64() + '\n');
    writeWorkFile(QStringLiteral("text.txt"), kText);
    const CliRun sealed = zthost({"encrypt", "--cert", workFile(QStringLiteral("alpha.cert")),
                                  "--in", workFile(QStringLiteral("text.txt")), "--out",
                                  workFile(QStringLiteral("text.env"))});
    ASSERT_EQ(sealed.exitCode, 0) << sealed.err.constData();

    const CliRun opened = decrypt(kWide, kUserPin);
    ASSERT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, kText);
    EXPECT_EQ(opened.err, usingDevice("alpha"));
}

TEST_F(CliVendorDrivers, theDetectedWidthIsInTheHostsDebugLog)
{
    makeDeviceAndEnvelope();
    const QString log = workFile(QStringLiteral("host.log"));
    const CliRun opened = decrypt(kWide, kUserPin, {"-v", "--host-log", log});
    ASSERT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_TRUE(QString::fromUtf8(readWorkFile(QStringLiteral("host.log")))
                    .contains(QStringLiteral("[debug] smart-key driver %1: 8-byte ULONG (detected)")
                                  .arg(kWide)));
}

TEST_F(CliVendorDrivers, aWrongPinCountsDownThroughAWideDriverAndDevicesShowsIt)
{
    makeDeviceAndEnvelope();
    EXPECT_EQ(zthost({"devices", "--skf", kWide}).outText(), kDeviceTable.arg("6 of 6"));

    const CliRun refused = decrypt(kWide, kWrongPin);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.errText().contains(QStringLiteral(
        "[error] key device \"alpha\": SKF_VerifyPIN failed: 0x0A000024 SAR_PIN_INCORRECT (the "
        "PIN is wrong), 5 tries left for the user PIN\n")))
        << refused.err.constData();

    const CliRun listed = zthost({"devices", "--skf", kWide, "--driver-profile", "wide"});
    EXPECT_EQ(listed.exitCode, 0) << listed.err.constData();
    EXPECT_EQ(listed.outText(), kDeviceTable.arg("5 of 6"));
    EXPECT_EQ(listed.err, QByteArray());
}

TEST_F(CliVendorDrivers, passwdAndUnblockWorkThroughAWideDriver)
{
    makeDeviceAndEnvelope();
    const CliRun wrong =
        zthost({"passwd", "--skf", kWide, "--pin", kWrongPin, "--new-pin", kNewPin});
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_EQ(wrong.errText(),
              QString::fromUtf8(usingDevice("alpha"))
                  + QStringLiteral("zthost: key device \"alpha\": SKF_ChangePIN failed: "
                                   "0x0A000024 SAR_PIN_INCORRECT (the PIN is wrong), 5 user PIN "
                                   "tries left\n"));

    const CliRun changed = zthost({"passwd", "--skf", kWide, "--driver-profile", "wide", "--pin",
                                   kUserPin, "--new-pin", kNewPin});
    ASSERT_EQ(changed.exitCode, 0) << changed.err.constData();
    EXPECT_EQ(changed.outText(), QStringLiteral("changed the user PIN of key device \"alpha\"\n"));
    EXPECT_EQ(decrypt(kWide, kNewPin).out, kText);

    const CliRun wrongAdmin = zthost({"unblock", "--skf", kWide, "--admin-pin", kWrongPin,
                                      "--new-pin", kUserPin});
    EXPECT_EQ(wrongAdmin.exitCode, 1);
    EXPECT_EQ(wrongAdmin.errText(),
              QString::fromUtf8(usingDevice("alpha"))
                  + QStringLiteral("zthost: key device \"alpha\": SKF_UnblockPIN failed: "
                                   "0x0A000024 SAR_PIN_INCORRECT (the PIN is wrong), 5 "
                                   "administrator PIN tries left\n"));
    const CliRun unblocked =
        zthost({"unblock", "--skf", kWide, "--admin-pin", kAdminPin, "--new-pin", kUserPin});
    ASSERT_EQ(unblocked.exitCode, 0) << unblocked.err.constData();
    EXPECT_EQ(decrypt(kWide, kUserPin).out, kText);
}

TEST_F(CliVendorDrivers, theProfileComesFromTheEnvironmentAndTheConfigurationFile)
{
    makeDeviceAndEnvelope();
    EXPECT_EQ(zthost({"decrypt", "--skf", kWide, "--pin", kUserPin, "--in",
                      workFile(QStringLiteral("text.env"))},
                     {{QStringLiteral("ZTHOST_DRIVER_PROFILE"), QStringLiteral("wide")}})
                  .out,
              kText);
    writeConfiguration("[host]\ndriver-profile=wide\n");
    EXPECT_EQ(decrypt(kWide, kUserPin).out, kText);
}

TEST_F(CliVendorDrivers, theOptionOverridesTheEnvironmentWhichOverridesTheFile)
{
    makeDeviceAndEnvelope();
    writeConfiguration("[host]\ndriver-profile=standard\n");
    // The file alone is wrong for this driver; the environment puts it right.
    EXPECT_EQ(decrypt(kWide, kUserPin).exitCode, 1);
    const QHash<QString, QString> wideVariable{
        {QStringLiteral("ZTHOST_DRIVER_PROFILE"), QStringLiteral("wide")}};
    const CliRun byVariable = zthost({"devices", "--skf", kWide}, wideVariable);
    EXPECT_EQ(byVariable.exitCode, 0) << byVariable.err.constData();
    // And the option beats both.
    const CliRun byOption =
        zthost({"devices", "--skf", kWide, "--driver-profile", "standard"}, wideVariable);
    EXPECT_EQ(byOption.exitCode, 1);
    const CliRun byAuto = zthost({"devices", "--skf", kWide, "--driver-profile", "auto"});
    EXPECT_EQ(byAuto.exitCode, 0) << byAuto.err.constData();
}

TEST_F(CliVendorDrivers, aWrongProfileIsRefusedBeforeAnyKeyIsTouched)
{
    makeDeviceAndEnvelope();
    const QString refusal =
        QStringLiteral("smart-key driver %1 writes 8-byte ULONG values, but the driver profile is "
                       "standard (4-byte ULONG): choose the driver profile wide, or auto to "
                       "detect it\n")
            .arg(kWide);
    const CliRun listed = zthost({"devices", "--skf", kWide, "--driver-profile", "standard"});
    EXPECT_EQ(listed.exitCode, 1);
    EXPECT_EQ(listed.out, QByteArray());
    EXPECT_EQ(listed.errText(), QStringLiteral("zthost: ") + refusal);

    const CliRun passwd = zthost({"passwd", "--skf", kWide, "--driver-profile", "standard",
                                  "--pin", kUserPin, "--new-pin", kNewPin});
    EXPECT_EQ(passwd.exitCode, 1);
    EXPECT_EQ(passwd.errText(), QStringLiteral("zthost: ") + refusal);

    // Through the plug-in the key component lists no device: the log says why.
    const CliRun opened = decrypt(kWide, kUserPin, {"--driver-profile", "standard"});
    EXPECT_EQ(opened.exitCode, 1);
    EXPECT_EQ(opened.out, QByteArray());
    EXPECT_TRUE(opened.errText().contains(QStringLiteral("[error] ") + refusal))
        << opened.err.constData();
    EXPECT_TRUE(opened.errText().contains(
        QStringLiteral("zthost: WebOpenKey answered false: %1\n").arg(ZtMessages::kNoKeyDevice)));

    // No try was taken, and the PIN did not change.
    EXPECT_EQ(zthost({"devices", "--skf", kWide}).outText(), kDeviceTable.arg("6 of 6"));
    EXPECT_EQ(decrypt(kWide, kUserPin).out, kText);
}

TEST_F(CliVendorDrivers, aStandardDriverSetToWideIsRefusedToo)
{
    provision(QStringLiteral("alpha"));
    const CliRun listed = zthost({"devices", "--driver-profile", "wide"});
    EXPECT_EQ(listed.exitCode, 1);
    EXPECT_TRUE(listed.errText().endsWith(
        QStringLiteral(" writes 4-byte ULONG values, but the driver profile is wide (8-byte "
                       "ULONG): choose the driver profile standard, or auto to detect it\n")))
        << listed.err.constData();
}

TEST_F(CliVendorDrivers, anUnknownProfileIsAUsageErrorNamingWhereItCameFrom)
{
    struct Row
    {
        QStringList arguments;
        QHash<QString, QString> environment;
        QByteArray configuration;
        QString where;
        const char *reason;
    };
    const QString file = workFile(QStringLiteral("config/zthost/zthost.conf"));
    const Row rows[] = {
        {{"--driver-profile", "narrow"}, {}, QByteArray(), QStringLiteral("--driver-profile"),
         "the option"},
        {{}, {{QStringLiteral("ZTHOST_DRIVER_PROFILE"), QStringLiteral("narrow")}}, QByteArray(),
         QStringLiteral("ZTHOST_DRIVER_PROFILE"), "the environment"},
        {{}, {}, "[host]\ndriver-profile=narrow\n",
         QStringLiteral("host/driver-profile in %1").arg(file), "the configuration file"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        QFile::remove(file);
        if (!row.configuration.isEmpty())
            writeConfiguration(row.configuration);
        const CliRun result = zthost(QStringList{"devices"} + row.arguments, row.environment);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.out, QByteArray());
        EXPECT_EQ(result.errText(),
                  QStringLiteral("zthost devices: %1 \"narrow\" is not one of auto, standard, "
                                 "wide\nTry 'zthost devices --help'.\n")
                      .arg(row.where));
    }
}

TEST_F(CliVendorDrivers, aDriverWithoutTheOptionalFunctionsSaysWhichOneEachCommandLacks)
{
    makeDeviceAndEnvelope();
    const CliRun listed = zthost({"devices", "--skf", kSparse});
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_EQ(listed.outText(), kDeviceTable.arg("unknown"));
    EXPECT_EQ(listed.errText(),
              QStringLiteral("zthost: smart-key driver %1 has no SKF_GetPINInfo: tries left "
                             "unknown\n")
                  .arg(kSparse));

    const CliRun passwd =
        zthost({"passwd", "--skf", kSparse, "--pin", kUserPin, "--new-pin", kNewPin});
    EXPECT_EQ(passwd.exitCode, 1);
    EXPECT_EQ(passwd.errText(),
              QStringLiteral("zthost: smart-key driver %1 has no SKF_ChangePIN\n").arg(kSparse));
    const CliRun unblock =
        zthost({"unblock", "--skf", kSparse, "--admin-pin", kAdminPin, "--new-pin", kNewPin});
    EXPECT_EQ(unblock.exitCode, 1);
    EXPECT_EQ(unblock.errText(),
              QStringLiteral("zthost: smart-key driver %1 has no SKF_UnblockPIN\n").arg(kSparse));

    // What the driver has still works, and the PIN is the one it was.
    const CliRun opened = decrypt(kSparse, kUserPin);
    EXPECT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, kText);
}

TEST_F(CliVendorDrivers, configShowsTheProfileAndWhereItCameFromEvenAWrongOne)
{
    const QRegularExpression fromVariable(
        QStringLiteral("^driver-profile +narrow +environment ZTHOST_DRIVER_PROFILE$"),
        QRegularExpression::MultilineOption);
    const CliRun shown =
        zthost({"config"}, {{QStringLiteral("ZTHOST_DRIVER_PROFILE"), QStringLiteral("narrow")}});
    EXPECT_EQ(shown.exitCode, 0) << shown.err.constData();
    EXPECT_TRUE(shown.outText().contains(fromVariable)) << shown.out.constData();

    const CliRun set = zthost({"config", "set", "driver-profile", "wide"});
    ASSERT_EQ(set.exitCode, 0) << set.err.constData();
    EXPECT_EQ(readWorkFile(QStringLiteral("config/zthost/zthost.conf")),
              QByteArray("[host]\ndriver-profile=wide\n"));
    const QRegularExpression fromFile(
        QStringLiteral("^driver-profile +wide +file %1 \\(host/driver-profile\\)$")
            .arg(QRegularExpression::escape(workFile(QStringLiteral("config/zthost/zthost.conf")))),
        QRegularExpression::MultilineOption);
    EXPECT_TRUE(zthost({"config"}).outText().contains(fromFile));
}

TEST_F(CliVendorDrivers, doctorAndVersionReadAWideDriverRight)
{
    makeDeviceAndEnvelope();
    const CliRun doctor = zthost({"doctor", "--json", "--skf", kWide});
    QJsonParseError error{};
    const QJsonObject document = QJsonDocument::fromJson(doctor.out, &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << doctor.out.constData();
    QJsonObject devices;
    for (const QJsonValue &check : document.value(QStringLiteral("checks")).toArray()) {
        if (check.toObject().value(QStringLiteral("name")) == QLatin1String("devices"))
            devices = check.toObject();
    }
    EXPECT_EQ(devices.value(QStringLiteral("outcome")).toString(), QStringLiteral("ok"));
    EXPECT_EQ(devices.value(QStringLiteral("detail")).toString(),
              QStringLiteral("\"alpha\": application SOFTAPP, user PIN 6 of 6 tries, containers "
                             "SM2Container (SM2)"));

    // SKF_GetDevInfo through the driver adapter, its answer read for the driver's width; a set
    // profile the driver contradicts is refused instead of read.
    const CliRun version = zthost({"--version", "--skf", kWide});
    EXPECT_EQ(version.exitCode, 0) << version.out.constData() << version.err.constData();
    EXPECT_TRUE(version.outText().contains(
        QStringLiteral("\ndriver 1.0, firmware 1.0, manufacturer softskf (SKF_GetDevInfo of key "
                       "device \"alpha\" through %1)\n")
            .arg(QFileInfo(kWide).canonicalFilePath())))
        << version.out.constData();

    const CliRun refused = zthost({"--version", "--skf", kWide, "--driver-profile", "standard"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.outText().contains(
        QStringLiteral("\ndriver unknown: smart-key driver %1 writes 8-byte ULONG values, but the "
                       "driver profile is standard (4-byte ULONG): choose the driver profile "
                       "wide, or auto to detect it\n")
            .arg(kWide)))
        << refused.out.constData();
}
