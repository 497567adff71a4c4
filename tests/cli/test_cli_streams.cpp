// Shell habits: - for standard input and output, output files 0600 and never partial, --json,
// cert --pem.

#include "cli_process.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <sys/stat.h>

namespace {
mode_t modeOf(const QString &path)
{
    struct stat status {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &status), 0) << path.toStdString();
    return status.st_mode & 07777;
}

QJsonObject jsonObject(const QByteArray &line)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(line, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << line.constData();
    EXPECT_TRUE(line.endsWith('\n') && line.count('\n') == 1) << "one line";
    return document.object();
}

QByteArray randomBytes(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    return bytes;
}
} // namespace

class CliStreams : public CliTest
{
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        provision(QStringLiteral("alpha"));
        writeWorkFile(QStringLiteral("alpha.cert"),
                      storedCertificate(QStringLiteral("alpha")).toBase64() + '\n');
    }

    // The envelope of `content` for alpha, sealed from standard input to standard output.
    QByteArray envelopeOf(const QByteArray &content)
    {
        const CliRun sealed = run({"encrypt", "--cert", workFile(QStringLiteral("alpha.cert")),
                                   "--in", "-", "--out", "-"},
                                  {}, content);
        EXPECT_EQ(sealed.exitCode, 0) << sealed.err.constData();
        EXPECT_EQ(sealed.err, QByteArray());
        return sealed.out;
    }

    // The names in the work folder, to see that nothing temporary was left.
    QStringList workFolder() const
    {
        return QDir(QFileInfo(workFile(QStringLiteral("x"))).path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }
};

TEST_F(CliStreams, dashReadsStandardInputAndWritesStandardOutputBothWays)
{
    const QByteArray content = randomBytes(64 * 1024);
    const QByteArray envelope = envelopeOf(content);
    ASSERT_FALSE(envelope.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(workFile(QStringLiteral("-")))) << "no file named -";

    const CliRun opened = run({"decrypt", "--pin", kUserPin, "--in", "-", "--out", "-"}, {}, envelope);
    ASSERT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, content);
    EXPECT_EQ(opened.err, usingDevice("alpha"));

    // The certificate from standard input too.
    const CliRun certificateIn = run({"encrypt", "--cert", "-", "--in", workFile(QStringLiteral("alpha.cert"))},
                                     {}, storedCertificate(QStringLiteral("alpha")).toBase64());
    EXPECT_EQ(certificateIn.exitCode, 0) << certificateIn.err.constData();
    EXPECT_FALSE(QFileInfo::exists(workFile(QStringLiteral("-"))));
}

TEST_F(CliStreams, bothInputsFromStandardInputIsAUsageError)
{
    const CliRun refused = run({"encrypt", "--cert", "-", "--in", "-"}, {}, "x");
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.errText(), QStringLiteral("zthost encrypt: --cert and --in cannot both read "
                                                "standard input\nTry 'zthost encrypt --help'.\n"));
}

TEST_F(CliStreams, outputFilesAreCreatedOwnerOnlyAndAnExistingOneBecomesSo)
{
    writeWorkFile(QStringLiteral("text.env"), envelopeOf("secret plaintext"));
    const QString plain = workFile(QStringLiteral("plain.txt"));
    const CliRun made = run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("text.env")),
                             "--out", plain});
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    EXPECT_EQ(readWorkFile(QStringLiteral("plain.txt")), QByteArrayLiteral("secret plaintext"));
    EXPECT_EQ(modeOf(plain), mode_t(0600));

    ASSERT_EQ(::chmod(QFile::encodeName(plain).constData(), 0644), 0);
    const CliRun replaced = run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("text.env")),
                                 "--out", plain});
    ASSERT_EQ(replaced.exitCode, 0) << replaced.err.constData();
    EXPECT_EQ(modeOf(plain), mode_t(0600));

    const QString certificate = workFile(QStringLiteral("cert.out"));
    ASSERT_EQ(run({"cert", "--out", certificate}).exitCode, 0);
    EXPECT_EQ(modeOf(certificate), mode_t(0600));
    EXPECT_EQ(workFolder(), (QStringList{"alpha.cert", "cert.out", "plain.txt", "text.env"}));
}

TEST_F(CliStreams, aWriteThatFailsHalfWayLeavesTheOldFileAndNoTemporaryOne)
{
    // 64 KiB of plaintext against a file size limit of 8 KiB (16 blocks of 512 bytes): the write
    // fails part of the way through. SIGXFSZ is ignored so that the write answers EFBIG instead.
    const QByteArray content = randomBytes(64 * 1024);
    writeWorkFile(QStringLiteral("big.env"), envelopeOf(content));
    writeWorkFile(QStringLiteral("plain.bin"), "the old file");
    const CliRun limited = runAfterShell(
        QStringLiteral("ulimit -f 16; trap '' XFSZ"),
        {"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("big.env")), "--out",
         workFile(QStringLiteral("plain.bin"))});
    EXPECT_EQ(limited.exitCode, 1);
    EXPECT_EQ(limited.out, QByteArray());
    EXPECT_TRUE(limited.errText().contains(
        QStringLiteral("zthost: cannot write 65536 bytes to %1: ").arg(workFile(QStringLiteral("plain.bin")))))
        << limited.err.constData();
    EXPECT_EQ(readWorkFile(QStringLiteral("plain.bin")), QByteArrayLiteral("the old file"));
    EXPECT_EQ(workFolder(), (QStringList{"alpha.cert", "big.env", "plain.bin"}));

    // Without the limit the same command writes the whole file.
    ASSERT_EQ(run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("big.env")), "--out",
                   workFile(QStringLiteral("plain.bin"))})
                  .exitCode,
              0);
    EXPECT_EQ(readWorkFile(QStringLiteral("plain.bin")), content);
}

TEST_F(CliStreams, aFailedDecryptionWritesNoFile)
{
    writeWorkFile(QStringLiteral("text.env"), envelopeOf("never shown"));
    const CliRun refused = run({"decrypt", "--pin", kWrongPin, "--in", workFile(QStringLiteral("text.env")),
                                "--out", workFile(QStringLiteral("plain.txt"))});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(workFolder(), (QStringList{"alpha.cert", "text.env"}));
}

TEST_F(CliStreams, certPemIsTheStoredCertificateInPem)
{
    const CliRun pem = run({"cert", "--pem"});
    ASSERT_EQ(pem.exitCode, 0) << pem.err.constData();
    EXPECT_TRUE(pem.out.startsWith("-----BEGIN CERTIFICATE-----\n"));
    EXPECT_TRUE(pem.out.endsWith("\n-----END CERTIFICATE-----\n"));
    for (const QByteArray &line : pem.out.split('\n'))
        EXPECT_LE(line.size(), 64);
    BIO *bio = BIO_new_mem_buf(pem.out.constData(), pem.out.size());
    X509 *certificate = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    ASSERT_NE(certificate, nullptr);
    unsigned char *der = nullptr;
    const int length = i2d_X509(certificate, &der);
    X509_free(certificate);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(der), length),
              storedCertificate(QStringLiteral("alpha")));
    OPENSSL_free(der);
}

TEST_F(CliStreams, devicesJsonHasExactlyItsFields)
{
    provision(QStringLiteral("bravo"), 3);
    const CliRun listed = run({"devices", "--json"});
    ASSERT_EQ(listed.exitCode, 0) << listed.err.constData();
    EXPECT_EQ(listed.err, QByteArray());
    const QJsonObject document = jsonObject(listed.out);
    EXPECT_EQ(document.keys(), (QStringList{"chosen", "devices", "driver", "problems"}));
    EXPECT_EQ(document.value("chosen"), QJsonValue());
    EXPECT_TRUE(document.value("driver").toString().endsWith(QLatin1String("/libztsoftskf.so")));
    EXPECT_EQ(document.value("problems").toArray(), QJsonArray());
    const QJsonArray devices = document.value("devices").toArray();
    ASSERT_EQ(devices.size(), 2);
    EXPECT_EQ(devices.at(0).toObject(),
              (QJsonObject{{"device", "alpha"}, {"application", "SOFTAPP"},
                           {"userPinTriesLeft", 6}, {"userPinMaxTries", 6}}));
    EXPECT_EQ(devices.at(1).toObject(),
              (QJsonObject{{"device", "bravo"}, {"application", "SOFTAPP"},
                           {"userPinTriesLeft", 3}, {"userPinMaxTries", 3}}));
}

TEST_F(CliStreams, devicesJsonWithNoDeviceIsAnEmptyList)
{
    const CliRun listed = run({"devices", "--json", "--root", workFile(QStringLiteral("empty"))});
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_EQ(jsonObject(listed.out).value("devices").toArray(), QJsonArray());
}

TEST_F(CliStreams, demoJsonHasEveryStepWithItsOutcome)
{
    const CliRun demo = run({"demo", "--json"});
    ASSERT_EQ(demo.exitCode, 0) << demo.err.constData();
    EXPECT_EQ(demo.err, QByteArray());
    const QJsonObject document = jsonObject(demo.out);
    EXPECT_EQ(document.keys(), (QStringList{"driver", "ok", "plugin", "root", "steps", "totalMs"}));
    EXPECT_EQ(document.value("ok"), QJsonValue(true));
    EXPECT_EQ(document.value("plugin").toString(), QStringLiteral(ZT_PLUGIN_PATH));
    EXPECT_FALSE(QFileInfo::exists(document.value("root").toString())) << "removed";
    QStringList names;
    double sum = 0;
    for (const QJsonValue &step : document.value("steps").toArray()) {
        const QJsonObject object = step.toObject();
        EXPECT_EQ(object.keys(), (QStringList{"detail", "ms", "outcome", "step"}));
        EXPECT_EQ(object.value("outcome").toString(), QStringLiteral("ok"));
        EXPECT_TRUE(object.value("ms").isDouble());
        sum += object.value("ms").toDouble();
        names << object.value("step").toString();
    }
    EXPECT_EQ(names, (QStringList{"create software key", "load plug-in", "WebOpenKey",
                                  "WebVerifyPin", "WebGetCertData", "make envelope",
                                  "WebZtDecode", "text came back", "remove software key"}));
    EXPECT_DOUBLE_EQ(document.value("totalMs").toDouble(), sum);
}

TEST_F(CliStreams, demoJsonWithAMissingPluginSaysWhichStepFailedAndSkipsTheRest)
{
    const QString missing = workFile(QStringLiteral("libnone.so.1"));
    const CliRun demo = run({"demo", "--json", "--plugin", missing});
    EXPECT_EQ(demo.exitCode, 1);
    const QJsonObject document = jsonObject(demo.out);
    EXPECT_EQ(document.value("ok"), QJsonValue(false));
    const QJsonArray steps = document.value("steps").toArray();
    ASSERT_EQ(steps.size(), 9);
    EXPECT_EQ(steps.at(1).toObject().value("outcome").toString(), QStringLiteral("FAILED"));
    EXPECT_EQ(steps.at(1).toObject().value("detail").toString(),
              QStringLiteral("cannot load plug-in %1: no such file").arg(missing));
    EXPECT_EQ(steps.at(2).toObject(),
              (QJsonObject{{"step", "WebOpenKey"}, {"outcome", "skipped"}, {"ms", QJsonValue()},
                           {"detail", ""}}));
    EXPECT_EQ(steps.at(8).toObject().value("outcome").toString(), QStringLiteral("ok"));
}
