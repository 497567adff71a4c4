// zthost passwd and unblock as a user runs them: exit codes, exact messages, and envelopes made
// before a change or an unblock still opening afterwards.
#include "cli_process.h"

namespace {
constexpr const char *kNewPin = "cli-new-8642";
const QString kDevice = QStringLiteral("alpha");
const QByteArray kText = QByteArrayLiteral("sealed before the PIN changed\n");

QString incorrect(const char *function, int left, const char *whose)
{
    return QStringLiteral("zthost: using key device \"alpha\"\n"
                          "zthost: key device \"alpha\": %1 failed: 0x0A000024 SAR_PIN_INCORRECT "
                          "(the PIN is wrong), %2 %3 tries left\n")
        .arg(QLatin1String(function))
        .arg(left)
        .arg(QLatin1String(whose));
}
} // namespace

class CliPin : public CliTest
{
protected:
    // A device with `retries` tries per PIN and an envelope of kText for it in "text.env".
    void makeDeviceAndEnvelope(unsigned retries = 6)
    {
        provision(kDevice, retries);
        writeWorkFile(QStringLiteral("alpha.cert"), storedCertificate(kDevice).toBase64() + '\n');
        writeWorkFile(QStringLiteral("text.txt"), kText);
        const CliRun sealed = run({"encrypt", "--cert", workFile(QStringLiteral("alpha.cert")), "--in",
                                   workFile(QStringLiteral("text.txt")), "--out",
                                   workFile(QStringLiteral("text.env"))});
        ASSERT_EQ(sealed.exitCode, 0) << sealed.err.constData();
    }

    CliRun decrypt(const char *pin)
    {
        return run({"decrypt", "--pin", pin, "--in", workFile(QStringLiteral("text.env"))});
    }

    static void expectNoPinIn(const CliRun &result)
    {
        for (const char *pin : {kUserPin, kAdminPin, kWrongPin, kNewPin}) {
            EXPECT_FALSE(result.out.contains(pin)) << pin;
            EXPECT_FALSE(result.err.contains(pin)) << pin;
        }
    }
};

TEST_F(CliPin, passwdThenTheEnvelopeOpensWithTheNewPinOnly)
{
    makeDeviceAndEnvelope();
    const CliRun changed = run({"passwd", "--pin", kUserPin, "--new-pin", kNewPin});
    ASSERT_EQ(changed.exitCode, 0) << changed.err.constData();
    EXPECT_EQ(changed.outText(), QStringLiteral("changed the user PIN of key device \"alpha\"\n"));
    EXPECT_EQ(changed.err, usingDevice("alpha"));
    expectNoPinIn(changed);

    const CliRun withNew = decrypt(kNewPin);
    ASSERT_EQ(withNew.exitCode, 0) << withNew.err.constData();
    EXPECT_EQ(withNew.out, kText);
    const CliRun withOld = decrypt(kUserPin);
    EXPECT_EQ(withOld.exitCode, 1);
    EXPECT_EQ(withOld.out, QByteArray());
}

TEST_F(CliPin, passwdTakesBothPinsFromTheEnvironment)
{
    makeDeviceAndEnvelope();
    const CliRun changed = run({"passwd", "--device", "alpha"},
                               {{QStringLiteral("ZTHOST_PIN"), QLatin1String(kUserPin)},
                                {QStringLiteral("ZTHOST_NEW_PIN"), QLatin1String(kNewPin)}});
    ASSERT_EQ(changed.exitCode, 0) << changed.err.constData();
    EXPECT_EQ(decrypt(kNewPin).out, kText);
}

TEST_F(CliPin, passwdWithAWrongPinSaysTheTriesLeftAndChangesNothing)
{
    makeDeviceAndEnvelope();
    const CliRun refused = run({"passwd", "--pin", kWrongPin, "--new-pin", kNewPin});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.out, QByteArray());
    EXPECT_EQ(refused.errText(), incorrect("SKF_ChangePIN", 5, "user PIN"));
    expectNoPinIn(refused);
    EXPECT_EQ(decrypt(kUserPin).out, kText);
}

TEST_F(CliPin, passwdOnALockedPinPointsToUnblock)
{
    makeDeviceAndEnvelope(1);
    EXPECT_EQ(run({"passwd", "--pin", kWrongPin, "--new-pin", kNewPin}).errText(),
              incorrect("SKF_ChangePIN", 0, "user PIN"));
    const CliRun locked = run({"passwd", "--pin", kUserPin, "--new-pin", kNewPin});
    EXPECT_EQ(locked.exitCode, 1);
    EXPECT_EQ(locked.errText(),
              QStringLiteral("zthost: using key device \"alpha\"\n"
                             "zthost: key device \"alpha\": SKF_ChangePIN failed: 0x0A000025 "
                             "SAR_PIN_LOCKED (the PIN is locked after too many wrong tries); "
                             "'zthost unblock' gives it a new value with the administrator PIN\n"));
}

TEST_F(CliPin, passwdWithoutANewPinIsAUsageError)
{
    makeDeviceAndEnvelope();
    const CliRun refused = run({"passwd", "--pin", kUserPin});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.errText(),
              QStringLiteral("zthost passwd: no new user PIN: give --new-pin, set ZTHOST_NEW_PIN, "
                             "or run on a terminal to be asked\nTry 'zthost passwd --help'.\n"));
    const CliRun noOld = run({"passwd", "--new-pin", kNewPin});
    EXPECT_EQ(noOld.exitCode, 2);
    EXPECT_EQ(noOld.errText(),
              QStringLiteral("zthost passwd: no current user PIN: give --pin, set ZTHOST_PIN, or "
                             "run on a terminal to be asked\nTry 'zthost passwd --help'.\n"));
    EXPECT_EQ(decrypt(kUserPin).out, kText);
}

TEST_F(CliPin, passwdOnAnUnknownDeviceNamesTheOnesThereAre)
{
    makeDeviceAndEnvelope();
    const CliRun refused = run({"passwd", "--pin", kUserPin, "--new-pin", kNewPin, "--device", "zulu"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.errText().startsWith(QStringLiteral("zthost: no key device \"zulu\": ")))
        << refused.err.constData();
    EXPECT_TRUE(refused.errText().endsWith(QStringLiteral(" lists alpha\n")));
}

TEST_F(CliPin, unblockGivesALockedKeyANewPinAndKeepsEarlierEnvelopes)
{
    makeDeviceAndEnvelope(2);
    EXPECT_EQ(decrypt(kWrongPin).exitCode, 1);
    EXPECT_EQ(decrypt(kWrongPin).exitCode, 1);
    EXPECT_EQ(decrypt(kUserPin).exitCode, 1) << "the user PIN should be locked";

    const CliRun unblocked = run({"unblock", "--admin-pin", kAdminPin, "--new-pin", kNewPin});
    ASSERT_EQ(unblocked.exitCode, 0) << unblocked.err.constData();
    EXPECT_EQ(unblocked.outText(), QStringLiteral("unblocked the user PIN of key device \"alpha\": "
                                                  "new PIN set, all tries back\n"));
    EXPECT_EQ(unblocked.err, usingDevice("alpha"));
    expectNoPinIn(unblocked);
    const CliRun opened = decrypt(kNewPin);
    ASSERT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, kText);
    EXPECT_EQ(run({"devices"}).outText(), QStringLiteral("device  application  user PIN tries left\n"
                                                        "alpha   SOFTAPP      2 of 2\n"));
}

TEST_F(CliPin, unblockTakesItsPinsFromTheEnvironment)
{
    makeDeviceAndEnvelope();
    const CliRun unblocked = run({"unblock"},
                                 {{QStringLiteral("ZTHOST_ADMIN_PIN"), QLatin1String(kAdminPin)},
                                  {QStringLiteral("ZTHOST_NEW_PIN"), QLatin1String(kNewPin)}});
    ASSERT_EQ(unblocked.exitCode, 0) << unblocked.err.constData();
    EXPECT_EQ(decrypt(kNewPin).out, kText);
}

TEST_F(CliPin, wrongAdminPinCountsDownThenLocksEvenTheRightOne)
{
    makeDeviceAndEnvelope(2);
    const QStringList wrong{"unblock", "--admin-pin", kWrongPin, "--new-pin", kNewPin};
    const CliRun first = run(wrong);
    EXPECT_EQ(first.exitCode, 1);
    EXPECT_EQ(first.errText(), incorrect("SKF_UnblockPIN", 1, "administrator PIN"));
    EXPECT_EQ(run(wrong).errText(), incorrect("SKF_UnblockPIN", 0, "administrator PIN"));
    const CliRun locked = run({"unblock", "--admin-pin", kAdminPin, "--new-pin", kNewPin});
    EXPECT_EQ(locked.exitCode, 1);
    EXPECT_EQ(locked.errText(),
              QStringLiteral("zthost: using key device \"alpha\"\n"
                             "zthost: key device \"alpha\": SKF_UnblockPIN failed: 0x0A000025 "
                             "SAR_PIN_LOCKED (the PIN is locked after too many wrong tries)\n"));
    // The user PIN is untouched.
    EXPECT_EQ(decrypt(kUserPin).out, kText);
}

TEST_F(CliPin, unblockWithoutAnAdminPinIsAUsageError)
{
    makeDeviceAndEnvelope();
    const CliRun refused = run({"unblock", "--new-pin", kNewPin});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.errText(),
              QStringLiteral("zthost unblock: no administrator PIN: give --admin-pin, set "
                             "ZTHOST_ADMIN_PIN, or run on a terminal to be asked\n"
                             "Try 'zthost unblock --help'.\n"));
}

#ifdef ZT_DRIVER_WITHOUT_PIN_MANAGEMENT
TEST_F(CliPin, aDriverWithoutThePinFunctionsIsNamedWithTheMissingOne)
{
    makeDeviceAndEnvelope();
    const QString driver = QStringLiteral(ZT_DRIVER_WITHOUT_PIN_MANAGEMENT);
    const CliRun passwd = run({"passwd", "--skf", driver, "--pin", kUserPin, "--new-pin", kNewPin});
    EXPECT_EQ(passwd.exitCode, 1);
    EXPECT_EQ(passwd.errText(),
              QStringLiteral("zthost: smart-key driver %1 has no SKF_ChangePIN\n").arg(driver));
    const CliRun unblock =
        run({"unblock", "--skf", driver, "--admin-pin", kAdminPin, "--new-pin", kNewPin});
    EXPECT_EQ(unblock.exitCode, 1);
    EXPECT_EQ(unblock.errText(),
              QStringLiteral("zthost: smart-key driver %1 has no SKF_UnblockPIN\n").arg(driver));
    EXPECT_EQ(decrypt(kUserPin).out, kText);
}
#endif
