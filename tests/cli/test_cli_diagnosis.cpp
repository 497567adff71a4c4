// The line of diagnosis after the library's message: each cause the library reports with one
// shared message told apart from what the driver answered, by real zthost processes on the
// software key.
#include "cli_process.h"

namespace {
const QString kAlpha = QStringLiteral("alpha");
const QByteArray kText = QByteArrayLiteral("diagnosed\n");
const QString kKeyDoesNotMatch = QStringLiteral("密钥盘不匹配，解密失败");

// The last `count` lines of standard error, each with its newline.
QString lastLines(const CliRun &run, int count)
{
    QStringList lines = run.errText().split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    QString tail;
    for (int i = qMax(0, int(lines.size()) - count); i < lines.size(); ++i)
        tail += lines.at(i) + QLatin1Char('\n');
    return tail;
}
} // namespace

class CliDiagnosis : public CliTest
{
protected:
    // An envelope of kText for `device`'s certificate in "text.env".
    void sealFor(const QString &device)
    {
        writeWorkFile(QStringLiteral("recipient.cert"), storedCertificate(device).toBase64() + '\n');
        writeWorkFile(QStringLiteral("text.txt"), kText);
        const CliRun sealed = run({"encrypt", "--cert", workFile(QStringLiteral("recipient.cert")),
                                   "--in", workFile(QStringLiteral("text.txt")), "--out",
                                   workFile(QStringLiteral("text.env"))});
        ASSERT_EQ(sealed.exitCode, 0) << sealed.err.constData();
    }

    CliRun decrypt(const char *pin, const QStringList &more = {},
                   const QHash<QString, QString> &environment = {})
    {
        return run(QStringList{"decrypt", "--pin", pin, "--in", workFile(QStringLiteral("text.env"))}
                       + more,
                   environment);
    }
};

TEST_F(CliDiagnosis, wrongPinSaysTheTriesLeftAfterTheLibrarysMessage)
{
    provision(kAlpha, 6);
    sealFor(kAlpha);
    const CliRun refused = decrypt(kWrongPin);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.out, QByteArray());
    EXPECT_EQ(lastLines(refused, 2),
              QStringLiteral("zthost: WebVerifyPin answered false: %1\n"
                             "zthost: diagnosis: wrong user PIN for key device \"alpha\": 5 tries "
                             "left before it locks\n")
                  .arg(ZtMessages::kWrongPin));
    EXPECT_FALSE(refused.err.contains(kWrongPin));
}

TEST_F(CliDiagnosis, lastWrongTryAndThenALockedPinSayHowToUnblock)
{
    provision(kAlpha, 2);
    sealFor(kAlpha);
    EXPECT_EQ(lastLines(decrypt(kWrongPin), 1),
              QStringLiteral("zthost: diagnosis: wrong user PIN for key device \"alpha\": 1 try "
                             "left before it locks\n"));
    EXPECT_EQ(lastLines(decrypt(kWrongPin), 1),
              QStringLiteral("zthost: diagnosis: wrong user PIN for key device \"alpha\": no tries "
                             "left, it is now locked; give it a new PIN with the admin PIN: "
                             "zthost unblock\n"));
    // The right PIN now: the library still says "wrong PIN", the diagnosis says locked.
    const CliRun locked = decrypt(kUserPin);
    EXPECT_EQ(locked.exitCode, 1);
    EXPECT_EQ(lastLines(locked, 2),
              QStringLiteral("zthost: WebVerifyPin answered false: %1\n"
                             "zthost: diagnosis: the user PIN of key device \"alpha\" is locked "
                             "after too many wrong tries; give it a new PIN with the admin PIN: "
                             "zthost unblock\n")
                  .arg(ZtMessages::kWrongPin));
}

TEST_F(CliDiagnosis, devicesShowsALockedPinAsLocked)
{
    provision(kAlpha, 1);
    sealFor(kAlpha);
    decrypt(kWrongPin);
    const CliRun listed = run({"devices"});
    EXPECT_EQ(listed.exitCode, 0) << listed.err.constData();
    EXPECT_EQ(listed.outText(), QStringLiteral("device  application  user PIN tries left\n"
                                               "alpha   SOFTAPP      locked (0 of 1)\n"));
}

TEST_F(CliDiagnosis, decodeWithoutAVerifiedPinSaysSoNotThatTheKeyDoesNotMatch)
{
    provision(kAlpha);
    sealFor(kAlpha);
    const QString envelope = QString::fromLatin1(readWorkFile(QStringLiteral("text.env"))).trimmed();
    const CliRun refused = run({"call", "WebZtDecode", envelope, "0x401"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(lastLines(refused, 2),
              QStringLiteral("zthost: WebZtDecode answered \"false\": %1\n"
                             "zthost: diagnosis: the user PIN of key device \"alpha\" was not "
                             "verified in this session (SKF_ImportSessionKey answered "
                             "SAR_USER_NOT_LOGGED_IN): call WebVerifyPin first, in the same "
                             "process\n")
                  .arg(kKeyDoesNotMatch));
}

TEST_F(CliDiagnosis, envelopeForAnotherCertificateNamesItsRecipientAndTheKeys)
{
    // "alpha" is listed first, so decrypt opens it; the envelope is for "beta".
    provision(kAlpha);
    provision(QStringLiteral("beta"));
    sealFor(QStringLiteral("beta"));
    const CliRun refused = decrypt(kUserPin);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.out, QByteArray());
    EXPECT_EQ(lastLines(refused, 2),
              QStringLiteral("zthost: WebZtDecode answered \"false\": %1\n"
                             "zthost: diagnosis: the envelope was made for another certificate "
                             "(issuer CN=beta, serial %2); key device \"alpha\" holds the "
                             "certificate with issuer CN=alpha, serial %3\n")
                  .arg(kKeyDoesNotMatch, serialOf(storedCertificate(QStringLiteral("beta"))),
                       serialOf(storedCertificate(kAlpha))));
}

TEST_F(CliDiagnosis, driverMissingIsNamedWithItsPath)
{
    provision(kAlpha);
    sealFor(kAlpha);
    const QString missing = workFile(QStringLiteral("libnone.so"));
    const CliRun refused = decrypt(kUserPin, {"--skf", missing});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(lastLines(refused, 2),
              QStringLiteral("zthost: WebOpenKey answered false: %1\n"
                             "zthost: diagnosis: cannot load smart-key driver %2: %2: cannot open "
                             "shared object file: No such file or directory; name a working "
                             "smart-key driver with --skf\n")
                  .arg(ZtMessages::kNoKeyDevice, missing));
}

TEST_F(CliDiagnosis, driverLackingAFunctionTheHostNeedsIsNamedWithTheFunction)
{
    provision(kAlpha);
    sealFor(kAlpha);
    const CliRun refused = decrypt(kUserPin, {"--skf", ZT_PARTIAL_DRIVER});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(lastLines(refused, 1),
              QStringLiteral("zthost: diagnosis: symbol SKF_EnumApplication missing in smart-key "
                             "driver %1; name a working smart-key driver with --skf\n")
                  .arg(QStringLiteral(ZT_PARTIAL_DRIVER)));
}

TEST_F(CliDiagnosis, noDeviceSaysHowToGetOne)
{
    const CliRun refused = run({"cert"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.errText(),
              QStringLiteral("zthost: WebOpenKey answered false: %1\n"
                             "zthost: diagnosis: the smart-key driver %2 lists no key device: "
                             "plug one in, or make a software key with zthost keygen\n")
                  .arg(ZtMessages::kNoKeyDevice, QStringLiteral(ZT_SOFTSKF_PATH)));
}

#ifdef ZT_DRIVER_WITHOUT_PIN_MANAGEMENT
TEST_F(CliDiagnosis, deviceRemovedDuringTheDecodeSaysSo)
{
    provision(kAlpha);
    sealFor(kAlpha);
    // The test driver passes every call on to the software device but answers this one itself.
    const CliRun refused
        = decrypt(kUserPin, {"--skf", ZT_DRIVER_WITHOUT_PIN_MANAGEMENT},
                  {{QStringLiteral("ZT_RECORDING_DRIVER_FAIL"),
                    QStringLiteral("SKF_ImportSessionKey=0x0A000023")}});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(lastLines(refused, 2),
              QStringLiteral("zthost: WebZtDecode answered \"false\": %1\n"
                             "zthost: diagnosis: key device \"alpha\" was removed "
                             "(SKF_ImportSessionKey answered SAR_DEVICE_REMOVED): plug it in "
                             "again and retry\n")
                  .arg(kKeyDoesNotMatch));
}
#endif

TEST_F(CliDiagnosis, aFailureTheDriverHadNoPartInAddsNoDiagnosis)
{
    provision(kAlpha);
    writeWorkFile(QStringLiteral("text.env"), QByteArrayLiteral("bm90IGFuIGVudmVsb3Bl\n"));
    const CliRun refused = decrypt(kUserPin);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.errText(),
              QString::fromUtf8(usingDevice("alpha"))
                  + QStringLiteral("zthost: WebZtDecode answered \"false\": %1\n")
                        .arg(ZtMessages::kEnvelopeUnreadable));
}
