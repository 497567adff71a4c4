// zthost's command line: usage errors, help, and a plug-in that is not there.

#include "cli_process.h"

TEST_F(CliTest, usageErrorsExitWithTwoAndSayWhatWasWrong)
{
    struct Row
    {
        QStringList arguments;
        const char *message;
        const char *reason;
    };
    const Row rows[] = {
        {{}, "no command given", "nothing at all"},
        {{"frobnicate"}, "unknown command \"frobnicate\"", "unknown command"},
        {{"cert", "--bogus"}, "Unknown option 'bogus'", "unknown option"},
        {{"cert", "--plugin"}, "Missing value after '--plugin'", "option without its value"},
        {{"keygen", "--pin", "1234"}, "missing --name", "keygen without a name"},
        {{"keygen", "--name", "x"}, "no user PIN", "keygen without a PIN and no terminal"},
        {{"keygen", "--name", "x", "--pin", "1234", "--retries", "0"}, "--retries must be 1 to 255",
         "no tries at all"},
        {{"keygen", "--name", "x", "--pin", "1234", "--retries", "many"},
         "--retries must be 1 to 255", "retries not a number"},
        {{"encrypt", "--in", "x"}, "missing --cert", "encrypt without a certificate"},
        {{"encrypt", "--cert", "x"}, "missing --in", "encrypt without content"},
        {{"decrypt", "--pin", "1234"}, "missing --in", "decrypt without an envelope"},
        {{"demo", "extra"}, "unexpected argument \"extra\"", "demo takes no argument"},
        {{"help", "frobnicate"}, "unknown command \"frobnicate\"", "help on an unknown command"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        const CliRun result = run(row.arguments);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.out, QByteArray());
        EXPECT_TRUE(result.errText().contains(QLatin1String(row.message))) << result.err.constData();
    }
}

TEST_F(CliTest, everyCommandOfOptionsOnlyRefusesAWordAfterThemBeforeLoadingAnything)
{
    for (const char *command : {"demo", "keygen", "devices", "cert", "encrypt", "decrypt", "doctor",
                                "passwd", "unblock", "serve", "shell", "--version"}) {
        SCOPED_TRACE(command);
        const CliRun result = run({command, "--plugin", "/nonexistent/plugin.so", "stray"});
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.out, QByteArray());
        EXPECT_EQ(result.errText(), QStringLiteral("zthost %1: unexpected argument \"stray\"\n"
                                                   "Try 'zthost %1 --help'.\n")
                                        .arg(QLatin1String(command)));
    }
}

TEST_F(CliTest, everyCommandHasHelp)
{
    const CliRun overview = run({"help"});
    EXPECT_EQ(overview.exitCode, 0);
    EXPECT_EQ(run({"--help"}).out, overview.out);
    for (const char *command : {"demo", "keygen", "devices", "cert", "encrypt", "decrypt", "call", "shell", "origins"}) {
        SCOPED_TRACE(command);
        EXPECT_TRUE(overview.outText().contains(QStringLiteral("\n  %1 ").arg(QLatin1String(command))));
        const CliRun help = run({command, "--help"});
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_TRUE(help.outText().startsWith(QStringLiteral("Usage: zthost %1 ").arg(QLatin1String(command))))
            << help.out.constData();
        EXPECT_TRUE(help.outText().contains(QStringLiteral("--plugin <PATH>")));
        EXPECT_EQ(run({"help", command}).out, help.out);
    }
    EXPECT_TRUE(run({"encrypt", "--help"}).outText().contains(QStringLiteral("starts with a zero byte")));
}

TEST_F(CliTest, missingPluginFailsNamingThePath)
{
    provision(QStringLiteral("alpha"));
    const QString missing = workFile(QStringLiteral("libZtCryptographic.so.1"));
    for (const char *command : {"cert", "demo"}) {
        SCOPED_TRACE(command);
        const CliRun result = run({command, "--plugin", missing});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_TRUE(result.errText().contains(QStringLiteral("cannot load plug-in %1: no such file").arg(missing))
                    || result.outText().contains(QStringLiteral("cannot load plug-in %1: no such file").arg(missing)))
            << result.err.constData() << result.out.constData();
    }
}

TEST_F(CliTest, fileThatIsNoPluginFailsNamingThePath)
{
    writeWorkFile(QStringLiteral("fake.so"), QByteArrayLiteral("not a shared object"));
    const QString fake = workFile(QStringLiteral("fake.so"));
    const CliRun result = run({"cert", "--plugin", fake});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.errText().contains(QStringLiteral("cannot load plug-in %1: ").arg(fake)))
        << result.err.constData();
}

TEST_F(CliTest, hostLogGoesToTheNamedFile)
{
    provision(QStringLiteral("alpha"));
    const QString log = workFile(QStringLiteral("host.log"));
    const CliRun result = run({"call", "-v", "--host-log", log, "WebVerifyPin", kWrongPin});
    EXPECT_EQ(result.exitCode, 1);
    const QString written = QString::fromUtf8(readWorkFile(QStringLiteral("host.log")));
    EXPECT_TRUE(written.contains(QStringLiteral("5 tries left for the user PIN"))) << written.toStdString();
    EXPECT_TRUE(written.contains(QStringLiteral("[debug]"))) << "-v lets the trace through";
    EXPECT_FALSE(written.contains(QLatin1String(kWrongPin)));
    // The diagnosis line (failure_diagnosis.h) names the tries too, in its own words.
    EXPECT_FALSE(result.errText().contains(QStringLiteral("tries left for the user PIN")))
        << "not on standard error";
}
