// Several key devices: --device (ZTHOST_DEVICE, host/device) chooses one, the key component
// shows the plug-in only that one, and every command that used a key names it.

#include "cli_process.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

class CliDeviceChoice : public CliTest
{
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        provision(QStringLiteral("alpha"));
        provision(QStringLiteral("bravo"));
    }

    // The driver zthost loads by default, as `zthost config` shows it.
    QString configTableDriver()
    {
        for (const QString &line : run({"config"}).outText().split(QLatin1Char('\n'))) {
            if (line.startsWith(QLatin1String("skf ")))
                return line.mid(4).trimmed().section(QLatin1Char(' '), 0, 0);
        }
        return QString();
    }

    QByteArray certificateOf(const char *device) const
    {
        return storedCertificate(QLatin1String(device)).toBase64() + '\n';
    }
};

TEST_F(CliDeviceChoice, withoutAChoiceTheFirstIsTakenAndTheMessageSaysDeviceChooses)
{
    const CliRun cert = run({"cert"});
    ASSERT_EQ(cert.exitCode, 0) << cert.err.constData();
    EXPECT_EQ(cert.out, certificateOf("alpha"));
    EXPECT_EQ(cert.errText(),
              QStringLiteral("zthost: using key device \"alpha\", the first of 2 the driver lists "
                             "(alpha, bravo); --device NAME chooses another\n"));
}

TEST_F(CliDeviceChoice, deviceOptionEnvironmentAndFileEachChooseTheKeyThePluginOpens)
{
    const CliRun byOption = run({"cert", "--device", "bravo"});
    ASSERT_EQ(byOption.exitCode, 0) << byOption.err.constData();
    EXPECT_EQ(byOption.out, certificateOf("bravo"));
    EXPECT_EQ(byOption.err, usingDevice("bravo"));

    const CliRun byEnvironment = run({"cert"}, {{QStringLiteral("ZTHOST_DEVICE"), QStringLiteral("bravo")}});
    EXPECT_EQ(byEnvironment.out, certificateOf("bravo"));
    EXPECT_EQ(byEnvironment.err, usingDevice("bravo"));

    ASSERT_EQ(run({"config", "set", "device", "bravo"}).exitCode, 0);
    const CliRun byFile = run({"cert"});
    EXPECT_EQ(byFile.out, certificateOf("bravo"));
    EXPECT_EQ(byFile.err, usingDevice("bravo"));

    // The option still beats the file and the environment.
    const CliRun optionWins = run({"cert", "--device", "alpha"},
                                  {{QStringLiteral("ZTHOST_DEVICE"), QStringLiteral("bravo")}});
    EXPECT_EQ(optionWins.out, certificateOf("alpha"));
    EXPECT_EQ(optionWins.err, usingDevice("alpha"));
}

TEST_F(CliDeviceChoice, decryptOpensTheEnvelopeOnTheChosenDeviceOnly)
{
    writeWorkFile(QStringLiteral("bravo.cert"), certificateOf("bravo"));
    writeWorkFile(QStringLiteral("text.txt"), "for bravo only");
    ASSERT_EQ(run({"encrypt", "--cert", workFile(QStringLiteral("bravo.cert")), "--in",
                   workFile(QStringLiteral("text.txt")), "--out", workFile(QStringLiteral("text.env"))})
                  .exitCode,
              0);
    const CliRun onBravo = run({"decrypt", "--device", "bravo", "--pin", kUserPin, "--in",
                                workFile(QStringLiteral("text.env"))});
    ASSERT_EQ(onBravo.exitCode, 0) << onBravo.err.constData();
    EXPECT_EQ(onBravo.out, QByteArrayLiteral("for bravo only"));
    EXPECT_EQ(onBravo.err, usingDevice("bravo"));

    // alpha, taken by default, holds another key: the plug-in cannot open the envelope there.
    const CliRun onAlpha = run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("text.env"))});
    EXPECT_EQ(onAlpha.exitCode, 1);
    EXPECT_EQ(onAlpha.out, QByteArray());
}

TEST_F(CliDeviceChoice, aDeviceTheDriverDoesNotListFailsNamingThoseItDoes)
{
    const QString driver = configTableDriver();
    for (const QStringList &command :
         {QStringList{"cert"}, QStringList{"call", "WebOpenKey"}, QStringList{"devices"},
          QStringList{"decrypt", "--pin", kUserPin, "--in", "-"}}) {
        SCOPED_TRACE(command.join(' ').toStdString());
        const CliRun refused = run(command + QStringList{"--device", "zulu"}, {}, "not read");
        EXPECT_EQ(refused.exitCode, 1);
        EXPECT_EQ(refused.out, QByteArray());
        EXPECT_EQ(refused.errText(),
                  QStringLiteral("zthost: no key device \"zulu\": %1 lists alpha, bravo\n").arg(driver));
    }
}

TEST_F(CliDeviceChoice, devicesListsEveryDeviceAndNamesTheChosenOneWithItsSource)
{
    const QString both = QStringLiteral("device  application  user PIN tries left\n"
                                        "alpha   SOFTAPP      6 of 6\n"
                                        "bravo   SOFTAPP      6 of 6\n");
    const CliRun none = run({"devices"});
    EXPECT_EQ(none.outText(), both);
    EXPECT_EQ(none.err, QByteArray());

    const CliRun byOption = run({"devices", "--device", "bravo"});
    EXPECT_EQ(byOption.exitCode, 0);
    EXPECT_EQ(byOption.outText(), both);
    EXPECT_EQ(byOption.errText(),
              QStringLiteral("zthost: commands use key device \"bravo\" (option --device)\n"));

    ASSERT_EQ(run({"config", "set", "host/device", "alpha"}).exitCode, 0);
    const CliRun json = run({"devices", "--json"});
    EXPECT_EQ(json.errText(), QStringLiteral("zthost: commands use key device \"alpha\" (file %1 "
                                             "(host/device))\n")
                                  .arg(configurationFile()));
    const QJsonObject document = QJsonDocument::fromJson(json.out).object();
    EXPECT_EQ(document.value("chosen").toString(), QStringLiteral("alpha"));
    EXPECT_EQ(document.value("devices").toArray().size(), 2);
}

TEST_F(CliDeviceChoice, callWebOpenKeyNamesTheDeviceItOpened)
{
    const CliRun opened = run({"call", "WebOpenKey", "--device", "bravo"});
    ASSERT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.outText(), QStringLiteral("true\n"));
    EXPECT_EQ(opened.err, usingDevice("bravo"));
}

TEST_F(CliDeviceChoice, passwdChangesTheChosenDevicesPinAndNamesIt)
{
    const CliRun changed = run({"passwd", "--pin", kUserPin, "--new-pin", "new-pin-1234"},
                               {{QStringLiteral("ZTHOST_DEVICE"), QStringLiteral("bravo")}});
    ASSERT_EQ(changed.exitCode, 0) << changed.err.constData();
    EXPECT_EQ(changed.outText(), QStringLiteral("changed the user PIN of key device \"bravo\"\n"));
    EXPECT_EQ(changed.err, usingDevice("bravo"));

    const CliRun first = run({"passwd", "--pin", kUserPin, "--new-pin", "new-pin-1234"});
    EXPECT_EQ(first.outText(), QStringLiteral("changed the user PIN of key device \"alpha\"\n"));
    EXPECT_EQ(first.errText(),
              QStringLiteral("zthost: using key device \"alpha\", the first of 2 the driver lists "
                             "(alpha, bravo); --device NAME chooses another\n"));
}

TEST_F(CliDeviceChoice, serveRefusesADeviceTheDriverDoesNotListBeforeItListens)
{
    const CliRun refused = run({"serve", "--device", "zulu"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.out, QByteArray()) << "no address printed";
    EXPECT_EQ(refused.errText(),
              QStringLiteral("zthost: no key device \"zulu\": %1 lists alpha, bravo\n").arg(configTableDriver()));
}

TEST_F(CliDeviceChoice, servicePortFromTheFileIsCheckedNamingWhereItCameFrom)
{
    ASSERT_EQ(run({"config", "set", "bridge/port", "70000"}).exitCode, 0);
    const CliRun fromFile = run({"serve", "--service"});
    EXPECT_EQ(fromFile.exitCode, 1);
    EXPECT_EQ(fromFile.errText(),
              QStringLiteral("zthost: port 70000 (file %1 (bridge/port)) is not a port from 1 to "
                             "65535\n")
                  .arg(configurationFile()));
    EXPECT_EQ(fromFile.out, QByteArray()) << "no address printed";
    // The demo page's bridge takes no port from the file: that one is the service's.
    const CliRun fromOption = run({"serve", "--port", "-1"});
    EXPECT_EQ(fromOption.exitCode, 2);
    EXPECT_EQ(fromOption.errText(),
              QStringLiteral("zthost serve: --port -1 is not a port from 0 to 65535\n"
                             "Try 'zthost serve --help'.\n"));
}
