// zthost keygen, devices and cert as a user runs them.

#include "cli_process.h"

#include <QFile>

TEST_F(CliTest, keygenThenDevicesShowsTheDeviceWithSixTries)
{
    const CliRun made = run({"keygen", "--name", "alpha", "--pin", kUserPin, "--admin-pin", kAdminPin});
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    EXPECT_EQ(made.outText(),
              QStringLiteral("created device \"alpha\" in %1\n"
                             "  application  SOFTAPP\n"
                             "  container    SM2Container (SM2: encryption and signing key pairs, "
                             "self-signed certificates)\n"
                             "  user PIN     6 tries\n"
                             "  admin PIN    as given, 6 tries\n")
                  .arg(root()));
    EXPECT_FALSE(made.errText().contains(QLatin1String(kUserPin)));

    const CliRun listed = run({"devices"});
    EXPECT_EQ(listed.exitCode, 0) << listed.err.constData();
    EXPECT_EQ(listed.outText(), QStringLiteral("device  application  user PIN tries left\n"
                                               "alpha   SOFTAPP      6 of 6\n"));
    EXPECT_EQ(listed.err, QByteArray());
}

TEST_F(CliTest, keygenTakesTheRootOptionAndTheRetries)
{
    const QString elsewhere = workFile(QStringLiteral("keys"));
    const CliRun made = run({"keygen", "--root", elsewhere, "--name", "bravo", "--retries", "3"},
                            {{QStringLiteral("ZTHOST_PIN"), QLatin1String(kUserPin)}});
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    EXPECT_TRUE(made.outText().contains(QStringLiteral("  user PIN     3 tries\n")));
    EXPECT_TRUE(made.outText().contains(QStringLiteral("(generated: keep it)")));

    EXPECT_EQ(run({"devices"}).out, QByteArray()) << "made under --root, not SOFTSKF_ROOT";
    const CliRun listed = run({"devices", "--root", elsewhere});
    EXPECT_EQ(listed.outText(), QStringLiteral("device  application  user PIN tries left\n"
                                               "bravo   SOFTAPP      3 of 3\n"));
}

TEST_F(CliTest, keygenOfAnExistingDeviceFailsNamingIt)
{
    provision(QStringLiteral("alpha"));
    const CliRun made = run({"keygen", "--name", "alpha", "--pin", kUserPin});
    EXPECT_EQ(made.exitCode, 1);
    EXPECT_EQ(made.out, QByteArray());
    EXPECT_TRUE(made.errText().contains(QStringLiteral("cannot make device \"alpha\" in %1").arg(root())))
        << made.err.constData();
}

TEST_F(CliTest, devicesWithNoDeviceWritesNothingToStandardOutput)
{
    const CliRun listed = run({"devices"});
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_EQ(listed.out, QByteArray());
    EXPECT_TRUE(listed.errText().contains(QStringLiteral("no key device"))) << listed.err.constData();
}

TEST_F(CliTest, devicesListsTheHealthyDeviceAndNamesTheDamagedOneThenFails)
{
    provision(QStringLiteral("alpha"));
    provision(QStringLiteral("bravo"));
    QFile record(root() + QStringLiteral("/bravo/device.dat"));
    ASSERT_TRUE(record.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(record.write("not a device record"), 19);
    record.close();

    const CliRun listed = run({"devices"});
    EXPECT_EQ(listed.exitCode, 1);
    EXPECT_EQ(listed.outText(), QStringLiteral("device  application  user PIN tries left\n"
                                               "alpha   SOFTAPP      6 of 6\n"));
    EXPECT_EQ(listed.errText(), QStringLiteral("zthost: device \"bravo\": SKF_ConnectDev failed: "
                                               "0x0A000004 SAR_FILEERR (a file operation on the "
                                               "device failed)\n"));
}

TEST_F(CliTest, devicesWithAMissingDriverFailsNamingIt)
{
    const QString driver = workFile(QStringLiteral("libnone.so"));
    const CliRun listed = run({"devices", "--skf", driver});
    EXPECT_EQ(listed.exitCode, 1);
    EXPECT_TRUE(listed.errText().contains(QStringLiteral("cannot load smart-key driver ") + driver))
        << listed.err.constData();
}

TEST_F(CliTest, certIsTheStoredEncryptionCertificateInBase64)
{
    provision(QStringLiteral("alpha"));
    const CliRun cert = run({"cert"});
    ASSERT_EQ(cert.exitCode, 0) << cert.err.constData();
    EXPECT_EQ(cert.out, storedCertificate(QStringLiteral("alpha")).toBase64() + '\n');
    EXPECT_EQ(cert.err, usingDevice("alpha"));

    const CliRun toFile = run({"cert", "--out", workFile(QStringLiteral("alpha.cert"))});
    ASSERT_EQ(toFile.exitCode, 0) << toFile.err.constData();
    EXPECT_EQ(toFile.out, QByteArray());
    EXPECT_EQ(readWorkFile(QStringLiteral("alpha.cert")), cert.out);
}

TEST_F(CliTest, certWithNoDeviceFailsWithTheNoKeyMessage)
{
    const CliRun cert = run({"cert"});
    EXPECT_EQ(cert.exitCode, 1);
    EXPECT_EQ(cert.out, QByteArray());
    EXPECT_TRUE(cert.errText().contains(QStringLiteral("WebOpenKey answered false: ")
                                        + ZtMessages::kNoKeyDevice))
        << cert.err.constData();
}
