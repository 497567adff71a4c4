// Settings: each from its option, environment variable, configuration file key or default, in
// that order; global options before or after the command; zthost config; zthost --version.

#include "cli_process.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>

namespace {
struct Shown
{
    QString value;
    QString from;
};

// `zthost config`'s table, by setting name: "name  value  from" with columns two blanks apart.
QMap<QString, Shown> configTable(const QString &out)
{
    QMap<QString, Shown> table;
    for (const QString &line : out.split(QLatin1Char('\n'))) {
        const QStringList cells = line.split(QRegularExpression(QStringLiteral(" {2,}")));
        if (cells.size() == 3 && cells.at(0) != QLatin1String("setting"))
            table.insert(cells.at(0), {cells.at(1), cells.at(2)});
    }
    return table;
}
} // namespace

class CliSettings : public CliTest
{
protected:
    void writeConfiguration(const QByteArray &ini)
    {
        ASSERT_TRUE(QDir().mkpath(QFileInfo(configurationFile()).path()));
        QFile file(configurationFile());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ASSERT_EQ(file.write(ini), ini.size());
    }

    QMap<QString, Shown> shownSettings(const QStringList &options = {},
                                       const QHash<QString, QString> &environment = {})
    {
        const CliRun shown = run(QStringList{"config"} + options, environment);
        EXPECT_EQ(shown.exitCode, 0) << shown.err.constData();
        EXPECT_EQ(shown.err, QByteArray());
        return configTable(shown.outText());
    }
};

TEST_F(CliSettings, configShowsEverySettingWithItsDefaultAndTheFileToCome)
{
    const CliRun shown = run({"config"});
    ASSERT_EQ(shown.exitCode, 0) << shown.err.constData();
    const QMap<QString, Shown> table = configTable(shown.outText());
    EXPECT_EQ(table.keys(), (QStringList{"device", "driver-profile", "origins", "plugin", "port",
                                         "root", "skf"}));
    EXPECT_EQ(table.value("plugin").value, QStringLiteral(ZT_PLUGIN_PATH));
    EXPECT_EQ(table.value("plugin").from, QStringLiteral("default"));
    EXPECT_TRUE(table.value("skf").value.endsWith(QLatin1String("/libztsoftskf.so")));
    EXPECT_EQ(table.value("device").value, QStringLiteral("(none)"));
    EXPECT_EQ(table.value("driver-profile").value, QStringLiteral("auto"));
    EXPECT_EQ(table.value("driver-profile").from, QStringLiteral("default"));
    EXPECT_EQ(table.value("port").value, QStringLiteral("19731"));
    EXPECT_EQ(table.value("origins").value, QStringLiteral("(none)"));
    // The test sets SOFTSKF_ROOT, the software device root's own variable.
    EXPECT_EQ(table.value("root").value, root());
    EXPECT_EQ(table.value("root").from, QStringLiteral("environment SOFTSKF_ROOT"));
    EXPECT_TRUE(shown.outText().endsWith(
        QStringLiteral("\nconfiguration file %1 (none yet)\n").arg(configurationFile())))
        << shown.out.constData();
}

TEST_F(CliSettings, optionBeatsEnvironmentBeatsFileBeatsDefaultForEachPathSetting)
{
    // One row per setting and source; the value names its source so that a mix-up shows.
    for (const char *setting : {"plugin", "skf", "device"}) {
        SCOPED_TRACE(setting);
        const QString key = QStringLiteral("host/%1").arg(QLatin1String(setting));
        const QString variable = QStringLiteral("ZTHOST_%1").arg(QString::fromLatin1(setting).toUpper());
        writeConfiguration(QStringLiteral("[host]\n%1=from-file\n").arg(QLatin1String(setting)).toUtf8());
        const QString fileFrom = QStringLiteral("file %1 (%2)").arg(configurationFile(), key);

        Shown shown = shownSettings().value(QLatin1String(setting));
        EXPECT_EQ(shown.value, QStringLiteral("from-file"));
        EXPECT_EQ(shown.from, fileFrom);

        shown = shownSettings({}, {{variable, QStringLiteral("from-environment")}})
                    .value(QLatin1String(setting));
        EXPECT_EQ(shown.value, QStringLiteral("from-environment"));
        EXPECT_EQ(shown.from, QStringLiteral("environment ") + variable);

        shown = shownSettings({QStringLiteral("--%1").arg(QLatin1String(setting)), "from-option"},
                              {{variable, QStringLiteral("from-environment")}})
                    .value(QLatin1String(setting));
        EXPECT_EQ(shown.value, QStringLiteral("from-option"));
        EXPECT_EQ(shown.from, QStringLiteral("option --%1").arg(QLatin1String(setting)));

        // An empty variable counts as unset.
        shown = shownSettings({}, {{variable, QString()}}).value(QLatin1String(setting));
        EXPECT_EQ(shown.from, fileFrom);
    }
}

TEST_F(CliSettings, rootFromTheFileIsWhereKeygenAndDevicesWork)
{
    const QString keys = workFile(QStringLiteral("keys-from-file"));
    writeConfiguration(QStringLiteral("[host]\nroot=%1\n").arg(keys).toUtf8());
    // SOFTSKF_ROOT, which the tests set, is the root's environment variable and would win.
    const CliRun made = runAfterShell(QStringLiteral("unset SOFTSKF_ROOT"),
                                      {"keygen", "--name", "filed", "--pin", kUserPin});
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    EXPECT_TRUE(made.outText().startsWith(QStringLiteral("created device \"filed\" in %1\n").arg(keys)));
    EXPECT_TRUE(QFileInfo(keys + QStringLiteral("/filed")).isDir());
    // With SOFTSKF_ROOT set, the environment wins over the file.
    EXPECT_EQ(run({"devices"}).out, QByteArray());
}

TEST_F(CliSettings, pluginAndDriverFromTheFileAndTheEnvironmentAreTheOnesLoaded)
{
    provision(QStringLiteral("alpha"));
    const QString missingPlugin = workFile(QStringLiteral("libfromfile.so.1"));
    writeConfiguration(QStringLiteral("[host]\nplugin=%1\n").arg(missingPlugin).toUtf8());
    const CliRun fromFile = run({"cert"});
    EXPECT_EQ(fromFile.exitCode, 1);
    EXPECT_EQ(fromFile.errText(),
              QStringLiteral("zthost: cannot load plug-in %1: no such file\n").arg(missingPlugin));

    const CliRun optionWins = run({"cert", "--plugin", QStringLiteral(ZT_PLUGIN_PATH)});
    EXPECT_EQ(optionWins.exitCode, 0) << optionWins.err.constData();

    const QString missingDriver = workFile(QStringLiteral("libfromenv.so"));
    const CliRun driverFromEnvironment =
        run({"devices", "--plugin", QStringLiteral(ZT_PLUGIN_PATH)},
            {{QStringLiteral("ZTHOST_SKF"), missingDriver}});
    EXPECT_EQ(driverFromEnvironment.exitCode, 1);
    EXPECT_TRUE(driverFromEnvironment.errText().startsWith(
        QStringLiteral("zthost: cannot load smart-key driver %1: ").arg(missingDriver)))
        << driverFromEnvironment.err.constData();
}

TEST_F(CliSettings, configFileOptionReadsAnotherFile)
{
    const QString other = workFile(QStringLiteral("other.conf"));
    QFile file(other);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("[bridge]\nport=8123\norigins=http://localhost:8080,http://127.0.0.1:9000\n");
    file.close();
    const QMap<QString, Shown> table = shownSettings({"--config", other});
    EXPECT_EQ(table.value("port").value, QStringLiteral("8123"));
    EXPECT_EQ(table.value("port").from, QStringLiteral("file %1 (bridge/port)").arg(other));
    EXPECT_EQ(table.value("origins").value,
              QStringLiteral("http://localhost:8080,http://127.0.0.1:9000"));
    // The serve-only options count as options for config too.
    EXPECT_EQ(shownSettings({"--config", other, "--port", "9001"}).value("port").from,
              QStringLiteral("option --port"));
}

TEST_F(CliSettings, configSetAndUnsetWriteTheFileByNameOrKey)
{
    ASSERT_EQ(run({"config", "set", "device", "alpha"}).exitCode, 0);
    const CliRun byKey = run({"config", "set", "host/skf", "/opt/vendor/libvendor.so"});
    ASSERT_EQ(byKey.exitCode, 0) << byKey.err.constData();
    EXPECT_EQ(byKey.out, QByteArray());
    QFile file(configurationFile());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArrayLiteral("[host]\ndevice=alpha\nskf=/opt/vendor/libvendor.so\n"));
    file.close();

    ASSERT_EQ(run({"config", "unset", "skf"}).exitCode, 0);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArrayLiteral("[host]\ndevice=alpha\n"));

    const CliRun unknown = run({"config", "set", "colour", "blue"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.errText(),
              QStringLiteral("zthost config: no setting \"colour\"; the file holds host/plugin, "
                             "host/skf, host/device, host/driver-profile, host/root, bridge/port, "
                             "bridge/origins\n"
                             "Try 'zthost config --help'.\n"));
    EXPECT_EQ(run({"config", "set", "device"}).exitCode, 2);
}

TEST_F(CliSettings, globalOptionsWorkBeforeTheCommandAsAfterIt)
{
    const QString keys = workFile(QStringLiteral("keys"));
    const CliRun before = run({"--root", keys, "keygen", "--name", "early", "--pin", kUserPin});
    ASSERT_EQ(before.exitCode, 0) << before.err.constData();
    EXPECT_TRUE(before.outText().startsWith(QStringLiteral("created device \"early\" in %1\n").arg(keys)));

    const QString listing = QStringLiteral("device  application  user PIN tries left\n"
                                           "early   SOFTAPP      6 of 6\n");
    EXPECT_EQ(run({"devices", "--root", keys}).outText(), listing);
    EXPECT_EQ(run({"--root", keys, "devices"}).outText(), listing);
    EXPECT_EQ(run({QStringLiteral("--root=") + keys, "-v", "devices"}).outText(), listing);
    EXPECT_EQ(run({"--device", "early", "--root", keys, "cert"}).err, usingDevice("early"));

    const CliRun dangling = run({"--root"});
    EXPECT_EQ(dangling.exitCode, 2);
    EXPECT_EQ(dangling.errText(), QStringLiteral("zthost: missing value after --root\n"
                                                 "Try 'zthost help'.\n"));
    const CliRun unknown = run({"--colour", "blue", "devices"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.errText(), QStringLiteral("zthost: unknown command \"--colour\"\n"
                                                "Try 'zthost help'.\n"));
}

TEST_F(CliSettings, versionNamesTheHostThePluginFileAndTheDriversDeviceInformation)
{
    provision(QStringLiteral("alpha"));
    const CliRun version = run({"--version"});
    ASSERT_EQ(version.exitCode, 0) << version.err.constData();
    const QStringList lines = version.outText().split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), 4) << version.out.constData();
    EXPECT_EQ(lines.at(0), QStringLiteral("zthost 1.0.0"));
    const QString realPlugin = QFileInfo(QStringLiteral(ZT_PLUGIN_PATH)).canonicalFilePath();
    EXPECT_TRUE(realPlugin.endsWith(QLatin1String(".so.1.0.0"))) << realPlugin.toStdString();
    EXPECT_EQ(lines.at(1), QStringLiteral("plug-in 1.0.0 (the file name of %1)").arg(realPlugin));
    const QString driver = configTable(run({"config"}).outText()).value("skf").value;
    EXPECT_EQ(lines.at(2),
              QStringLiteral("driver 1.0, firmware 1.0, manufacturer softskf (SKF_GetDevInfo of "
                             "key device \"alpha\" through %1)")
                  .arg(QFileInfo(driver).canonicalFilePath()));
    EXPECT_EQ(lines.at(3), QString());
    EXPECT_EQ(version.err, QByteArray());
}

TEST_F(CliSettings, versionWithoutADeviceOrPluginSaysWhatIsUnknown)
{
    const CliRun noDevice = run({"--version"});
    EXPECT_EQ(noDevice.exitCode, 0);
    EXPECT_TRUE(noDevice.outText().contains(QLatin1String(" lists no device to ask\n")))
        << noDevice.out.constData();

    const QString missing = workFile(QStringLiteral("libnone.so.1"));
    const CliRun noPlugin = run({"--plugin", missing, "--version"});
    EXPECT_EQ(noPlugin.exitCode, 1);
    EXPECT_TRUE(noPlugin.outText().contains(QStringLiteral("\nplug-in unknown: no file %1\n").arg(missing)))
        << noPlugin.out.constData();
}
