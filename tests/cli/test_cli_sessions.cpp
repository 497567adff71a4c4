// zthost call with several calls in one session, and zthost shell reading calls from its input.

#include "cli_process.h"

#include "openssl_envelope.h"

// QStrings compared as UTF-8, so that a failure shows the text.
#define EXPECT_TEXT(actual, expected) EXPECT_EQ((actual).toStdString(), (expected).toStdString())

namespace {
const QByteArray kContent = QByteArrayLiteral("sealed bid 17\n");
} // namespace

class CliSession : public CliTest
{
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        provision(QStringLiteral("alpha"));
        const QByteArray envelope =
            makeEnvelopeWithOpenSsl(storedCertificate(QStringLiteral("alpha")), kContent);
        ASSERT_FALSE(envelope.isEmpty());
        writeWorkFile(QStringLiteral("envelope.b64"), envelope.toBase64() + '\n');
    }

    QString triesLeft()
    {
        return run({"devices"}).outText().section(QLatin1Char('\n'), 1, 1);
    }

    static QByteArray decodedLine() { return kContent.toBase64() + '\n'; }
};

TEST_F(CliSession, callOpensVerifiesAndDecodesInOneProcess)
{
    const CliRun called = run({"call", "WebOpenKey", "--", "WebVerifyPin", kUserPin, "--",
                               "WebZtDecode", "@envelope.b64", "0"});
    EXPECT_EQ(called.exitCode, 0) << called.err.constData();
    EXPECT_EQ(called.out, "true\ntrue\n" + decodedLine());
    EXPECT_EQ(called.err, QByteArray());
}

TEST_F(CliSession, callOpensTheKeyItselfWhenTheFirstCallIsNotWebOpenKey)
{
    const CliRun called =
        run({"call", "WebVerifyPin", kUserPin, "--", "WebZtDecode", "@envelope.b64", "0"});
    EXPECT_EQ(called.exitCode, 0) << called.err.constData();
    EXPECT_EQ(called.out, "true\n" + decodedLine());
}

TEST_F(CliSession, callTakesAnArgumentFromStandardInput)
{
    const CliRun called = runWithInput({"call", "WebVerifyPin", "@-"}, QByteArray(kUserPin) + "\n");
    EXPECT_EQ(called.exitCode, 0) << called.err.constData();
    EXPECT_EQ(called.out, QByteArray("true\n"));
}

TEST_F(CliSession, callWebVerifyPinWithoutItsPinTakesTheEnvironment)
{
    const CliRun called = run({"call", "WebVerifyPin", "--", "WebZtDecode", "@envelope.b64", "0"},
                              {{QStringLiteral("ZTHOST_PIN"), QLatin1String(kUserPin)}});
    EXPECT_EQ(called.exitCode, 0) << called.err.constData();
    EXPECT_EQ(called.out, "true\n" + decodedLine());

    const CliRun none = run({"call", "WebVerifyPin"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_TEXT(none.errText(), QStringLiteral("zthost: no user PIN for WebVerifyPin: give it, set "
                                             "ZTHOST_PIN, or run on a terminal to be asked\n"));
}

TEST_F(CliSession, callStopsAtTheFirstFailureWithItsExplanation)
{
    const CliRun called = run({"call", "WebOpenKey", "--", "WebVerifyPin", kWrongPin, "--",
                               "WebZtDecode", "@envelope.b64", "0"});
    EXPECT_EQ(called.exitCode, 1);
    EXPECT_EQ(called.out, QByteArray("true\nfalse\n")) << "WebZtDecode is not called";
    // The host's own log line about the wrong PIN comes first, then the explained answer.
    EXPECT_TEXT(called.errText().section(QLatin1Char('\n'), -2, -2),
                QStringLiteral("zthost: WebVerifyPin answered false: ") + ZtMessages::kWrongPin);
    EXPECT_EQ(called.errText().count(QStringLiteral("answered")), 1);
    EXPECT_TEXT(triesLeft(), QStringLiteral("alpha   SOFTAPP      5 of 6"));
}

TEST_F(CliSession, callChecksEveryCallBeforeTheFirstIsMade)
{
    struct Row
    {
        QStringList arguments;
        int exitCode;
        QString message;
        const char *reason;
    };
    const Row rows[] = {
        {{"call", "WebVerifyPin", kWrongPin, "--", "WebNoSuchMethod"}, 2,
         QStringLiteral("zthost call: no method \"WebNoSuchMethod\"; the scriptable object has:"),
         "an unknown later method"},
        {{"call", "WebVerifyPin", kWrongPin, "--", "WebZtDecode", "@envelope.b64"}, 2,
         QStringLiteral("zthost call: WebZtDecode(QString bas64EncData, qulonglong ulAlgID) takes "
                        "2 arguments, 1 given"),
         "a later call short of an argument"},
        {{"call", "WebVerifyPin", kWrongPin, "--", "WebZtDecode", "@missing.b64", "0"}, 1,
         QStringLiteral("zthost: cannot read missing.b64: No such file or directory"),
         "a later call's file is missing"},
        {{"call", "WebVerifyPin", kWrongPin, "--", "--", "WebGetLastErrorMsg"}, 2,
         QStringLiteral("zthost call: no METHOD in call 2 (two -- in a row, or one at an end)"),
         "an empty call between separators"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        const CliRun called = run(row.arguments);
        EXPECT_EQ(called.exitCode, row.exitCode);
        EXPECT_EQ(called.out, QByteArray());
        EXPECT_TEXT(called.errText().section(QLatin1Char('\n'), 0, 0), row.message)
            << called.err.constData();
    }
    EXPECT_TEXT(triesLeft(), QStringLiteral("alpha   SOFTAPP      6 of 6"))
        << "no WebVerifyPin was made";
}

TEST_F(CliSession, callDoubleAtIsALiteralAtNotAFile)
{
    const CliRun called = run({"call", "WebVerifyPin", "@@envelope.b64"});
    EXPECT_EQ(called.exitCode, 1);
    EXPECT_EQ(called.out, QByteArray("false\n"));
    EXPECT_TEXT(called.errText().section(QLatin1Char('\n'), -2, -2),
                QStringLiteral("zthost: WebVerifyPin answered false: ") + ZtMessages::kWrongPin);
}

TEST_F(CliSession, shellRunsAScriptOfCallsFromItsInput)
{
    const CliRun shell = runWithInput({"shell"}, QByteArray("WebOpenKey\n"
                                                            "WebVerifyPin ")
                                                     + kUserPin
                                                     + "\n\nWebZtDecode @envelope.b64 0\nquit\n"
                                                       "WebGetLastErrorMsg\n");
    EXPECT_EQ(shell.exitCode, 0) << shell.err.constData();
    EXPECT_EQ(shell.out, "true\ntrue\n" + decodedLine()) << "nothing after quit is called";
    EXPECT_EQ(shell.err, QByteArray()) << "no prompt when the input is no terminal";
}

TEST_F(CliSession, shellGoesOnAfterAFailureAndExitsOne)
{
    const CliRun shell =
        runWithInput({"shell"}, QByteArray("WebVerifyPin ") + kWrongPin
                                    + "\nWebNoSuchMethod\nWebVerifyPin \"" + kUserPin + "\"\n",
                     {{QStringLiteral("ZTHOST_PIN"), QLatin1String(kUserPin)}});
    EXPECT_EQ(shell.exitCode, 1);
    EXPECT_EQ(shell.out, QByteArray("false\ntrue\n"));
    const QStringList errors = shell.errText().split(QLatin1Char('\n'));
    EXPECT_TEXT(errors.value(1),
                QStringLiteral("zthost: WebVerifyPin answered false: ") + ZtMessages::kWrongPin);
    EXPECT_TEXT(errors.value(2),
                QStringLiteral("zthost: no method \"WebNoSuchMethod\"; the scriptable object has:"));
    EXPECT_FALSE(shell.errText().contains(QLatin1String(kWrongPin)));
    EXPECT_FALSE(shell.outText().contains(QLatin1String(kUserPin)));
}

TEST_F(CliSession, shellWebVerifyPinWithoutItsPinTakesTheEnvironment)
{
    const CliRun shell = runWithInput({"shell"}, "WebVerifyPin\nWebZtDecode @envelope.b64 0\n",
                                      {{QStringLiteral("ZTHOST_PIN"), QLatin1String(kUserPin)}});
    EXPECT_EQ(shell.exitCode, 0) << shell.err.constData();
    EXPECT_EQ(shell.out, "true\n" + decodedLine());
}

TEST_F(CliSession, shellHelpListsTheMethodsAndTheShellsOwnWords)
{
    const CliRun shell = runWithInput({"shell"}, "help\n");
    EXPECT_EQ(shell.exitCode, 0) << shell.err.constData();
    EXPECT_TRUE(shell.outText().contains(QStringLiteral("\n  quit   leave (so does the end of input)\n")))
        << shell.out.constData();
    EXPECT_TRUE(shell.outText().contains(QStringLiteral("\n  WebVerifyPin(QString pinCode)\n")))
        << shell.out.constData();
    EXPECT_TEXT(triesLeft(), QStringLiteral("alpha   SOFTAPP      6 of 6"));
}
