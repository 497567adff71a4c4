// zthost call: any invokable method of the scriptable object by name.

#include "cli_process.h"

TEST_F(CliTest, callWebGetLastErrorMsgAfterASuccessfulOpen)
{
    provision(QStringLiteral("alpha"));
    const CliRun called = run({"call", "WebGetLastErrorMsg"});
    EXPECT_EQ(called.exitCode, 0) << called.err.constData();
    EXPECT_EQ(called.outText(), QStringLiteral("errorcode : [0]\n"));
    EXPECT_EQ(called.err, usingDevice("alpha"));
}

TEST_F(CliTest, callWebZtEncodeConvertsEachArgument)
{
    provision(QStringLiteral("alpha"));
    const QString certificate =
        QString::fromLatin1(storedCertificate(QStringLiteral("alpha")).toBase64());
    const CliRun accepted = run({"call", "WebZtEncode", "aGVsbG8=", certificate, "0x401"});
    EXPECT_EQ(accepted.exitCode, 0) << accepted.err.constData();
    EXPECT_EQ(accepted.out, QByteArray("\n")) << "an empty answer is WebZtEncode's success";

    const CliRun refused = run({"call", "WebZtEncode", "aGVsbG8=", "", "1025"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.out, QByteArray("false\n"));
    EXPECT_TRUE(refused.errText().contains(QStringLiteral("WebZtEncode answered \"false\": ")))
        << refused.err.constData();
}

TEST_F(CliTest, callWebVerifyPinWithAWrongPinPrintsFalse)
{
    provision(QStringLiteral("alpha"));
    const CliRun called = run({"call", "WebVerifyPin", kWrongPin});
    EXPECT_EQ(called.exitCode, 1);
    EXPECT_EQ(called.out, QByteArray("false\n"));
    EXPECT_TRUE(called.errText().contains(QStringLiteral("WebVerifyPin answered false: ")
                                          + ZtMessages::kWrongPin));
    EXPECT_FALSE(called.errText().contains(QLatin1String(kWrongPin)));
    EXPECT_EQ(run({"call", "WebVerifyPin", kUserPin}).out, QByteArray("true\n"));
}

TEST_F(CliTest, callWebOpenKeyIsNotOpenedTwice)
{
    const CliRun none = run({"call", "WebOpenKey"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.out, QByteArray("false\n"));
    EXPECT_EQ(none.errText().count(QStringLiteral("WebOpenKey answered false")), 1)
        << none.err.constData();

    provision(QStringLiteral("alpha"));
    EXPECT_EQ(run({"call", "WebOpenKey"}).out, QByteArray("true\n"));
}

TEST_F(CliTest, callWithNoDeviceFailsOnTheOpen)
{
    const CliRun called = run({"call", "WebGetCertData", ""});
    EXPECT_EQ(called.exitCode, 1);
    EXPECT_EQ(called.out, QByteArray());
    EXPECT_TRUE(called.errText().contains(QStringLiteral("WebOpenKey answered false: ")
                                          + ZtMessages::kNoKeyDevice));
}

TEST_F(CliTest, callMistakesAreUsageErrors)
{
    provision(QStringLiteral("alpha"));
    struct Row
    {
        QStringList arguments;
        const char *message;
        const char *reason;
    };
    const Row rows[] = {
        {{"call", "WebNoSuchMethod"}, "no method \"WebNoSuchMethod\"", "unknown method"},
        {{"call", "deleteLater"}, "no method \"deleteLater\"", "QObject's own slots are not offered"},
        {{"call", "WebGetCertData"}, "WebGetCertData(QString certtype) takes 1 argument, 0 given",
         "too few arguments (WebVerifyPin alone asks for its PIN instead)"},
        {{"call", "WebGetLastErrorMsg", "x"}, "takes 0 arguments, 1 given", "too many arguments"},
        {{"call", "WebZtDecode", "AAAA", "abc"},
         "argument 2 (ulAlgID) of WebZtDecode is not a qulonglong: \"abc\"", "not a number"},
        {{"call"}, "missing METHOD", "no method at all"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        const CliRun called = run(row.arguments);
        EXPECT_EQ(called.exitCode, 2);
        EXPECT_EQ(called.out, QByteArray());
        EXPECT_TRUE(called.errText().contains(QLatin1String(row.message))) << called.err.constData();
    }
    EXPECT_EQ(run({"devices"}).outText(), QStringLiteral("device  application  user PIN tries left\n"
                                                         "alpha   SOFTAPP      6 of 6\n"))
        << "a refused call reaches no method";
}
