// zthost encrypt and decrypt, against the key and against OpenSSL alone.

#include "cli_process.h"

#include "openssl_envelope.h"

#include <softskf/provision.h>

#include <QFile>

#include <openssl/bio.h>
#include <openssl/pem.h>

namespace {
EvpPkeyPtr privateKeyFromPem(const std::string &pem)
{
    BIO *bio = BIO_new_mem_buf(pem.data(), int(pem.size()));
    EvpPkeyPtr key(PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr));
    BIO_free(bio);
    return key;
}
} // namespace

class CliEnvelope : public CliTest
{
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        provision(QStringLiteral("alpha"));
        writeWorkFile(QStringLiteral("alpha.cert"),
                      storedCertificate(QStringLiteral("alpha")).toBase64() + '\n');
    }

    // Encrypts `content` for alpha into "<name>.env"; the run's output.
    CliRun encrypt(const QString &name, const QByteArray &content)
    {
        writeWorkFile(name, content);
        return run({"encrypt", "--cert", workFile(QStringLiteral("alpha.cert")), "--in",
                    workFile(name), "--out", workFile(name + QStringLiteral(".env"))});
    }
};

TEST_F(CliEnvelope, encryptThenDecryptGivesTheTextBack)
{
    const QByteArray text = QByteArrayLiteral("hello, envelope\n第二行\n");
    const CliRun sealed = encrypt(QStringLiteral("text.txt"), text);
    ASSERT_EQ(sealed.exitCode, 0) << sealed.err.constData();
    EXPECT_EQ(sealed.out, QByteArray());
    EXPECT_EQ(sealed.err, QByteArray());

    const CliRun opened = run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("text.txt.env"))});
    ASSERT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, text);
    EXPECT_EQ(opened.err, usingDevice("alpha"));
}

TEST_F(CliEnvelope, encryptThenDecryptGivesAOneMebibyteBinaryFileBack)
{
    const QByteArray content = randomBytes(1 << 20);
    ASSERT_EQ(encrypt(QStringLiteral("big.bin"), content).exitCode, 0);
    const CliRun opened = run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("big.bin.env")),
                               "--out", workFile(QStringLiteral("big.out"))});
    ASSERT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, QByteArray());
    EXPECT_TRUE(readWorkFile(QStringLiteral("big.out")) == content);
}

TEST_F(CliEnvelope, encryptedEnvelopeOpensWithOpenSslAlone)
{
    const QByteArray text = QByteArrayLiteral("read by a codec nobody here wrote");
    ASSERT_EQ(encrypt(QStringLiteral("text.txt"), text).exitCode, 0);
    const QByteArray envelope = QByteArray::fromBase64(readWorkFile(QStringLiteral("text.txt.env")));

    std::string pem;
    std::string error;
    ASSERT_TRUE(softskf::exportEncryptionPrivateKeyPem(root().toStdString(), "alpha", kContainer,
                                                       kUserPin, &pem, &error))
        << error;
    EvpPkeyPtr key = privateKeyFromPem(pem);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(openEnvelopeWithOpenSsl(envelope, key.get()), text);
}

TEST_F(CliEnvelope, certificateAndEnvelopeAreAcceptedInEachFormat)
{
    const QByteArray der = storedCertificate(QStringLiteral("alpha"));
    const QByteArray pem = "-----BEGIN CERTIFICATE-----\n" + der.toBase64() + "\n-----END CERTIFICATE-----\n";
    struct Row
    {
        const char *file;
        QByteArray certificate;
        const char *reason;
    };
    const Row rows[] = {
        {"alpha.der", der, "DER as it is"},
        {"alpha.pem", pem, "PEM text"},
    };
    writeWorkFile(QStringLiteral("in.txt"), QByteArrayLiteral("x"));
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        writeWorkFile(QLatin1String(row.file), row.certificate);
        const CliRun sealed = run({"encrypt", "--cert", workFile(QLatin1String(row.file)), "--in",
                                   workFile(QStringLiteral("in.txt"))});
        ASSERT_EQ(sealed.exitCode, 0) << sealed.err.constData();
        // The same envelope as raw DER is detected and opened too.
        writeWorkFile(QStringLiteral("envelope.der"), QByteArray::fromBase64(sealed.out));
        const CliRun opened = run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("envelope.der"))});
        EXPECT_EQ(opened.exitCode, 0) << opened.err.constData();
        EXPECT_EQ(opened.out, QByteArrayLiteral("x"));
    }
}

TEST_F(CliEnvelope, pinComesFromTheEnvironment)
{
    ASSERT_EQ(encrypt(QStringLiteral("text.txt"), "from the environment").exitCode, 0);
    const CliRun opened = run({"decrypt", "--in", workFile(QStringLiteral("text.txt.env"))},
                              {{QStringLiteral("ZTHOST_PIN"), QLatin1String(kUserPin)}});
    EXPECT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, QByteArrayLiteral("from the environment"));
}

TEST_F(CliEnvelope, pinOptionWinsOverTheEnvironmentAndCostsNoTry)
{
    ASSERT_EQ(encrypt(QStringLiteral("text.txt"), "option over environment").exitCode, 0);
    const CliRun opened = run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("text.txt.env"))},
                              {{QStringLiteral("ZTHOST_PIN"), QLatin1String(kWrongPin)}});
    EXPECT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, QByteArrayLiteral("option over environment"));
    EXPECT_EQ(opened.err, usingDevice("alpha"));
    EXPECT_EQ(run({"devices"}).outText(), QStringLiteral("device  application  user PIN tries left\n"
                                                         "alpha   SOFTAPP      6 of 6\n"))
        << "the PIN in the environment was tried";
}

TEST_F(CliEnvelope, noPinAndNoTerminalIsAUsageError)
{
    ASSERT_EQ(encrypt(QStringLiteral("text.txt"), "x").exitCode, 0);
    const CliRun opened = run({"decrypt", "--in", workFile(QStringLiteral("text.txt.env"))});
    EXPECT_EQ(opened.exitCode, 2);
    EXPECT_TRUE(opened.errText().contains(QStringLiteral("no user PIN"))) << opened.err.constData();
}

TEST_F(CliEnvelope, wrongPinFailsWithoutShowingItAndCostsOneTry)
{
    ASSERT_EQ(encrypt(QStringLiteral("text.txt"), "x").exitCode, 0);
    const CliRun opened = run({"decrypt", "--pin", kWrongPin, "--in", workFile(QStringLiteral("text.txt.env"))});
    EXPECT_EQ(opened.exitCode, 1);
    EXPECT_EQ(opened.out, QByteArray());
    EXPECT_TRUE(opened.errText().contains(QStringLiteral("WebVerifyPin answered false: ")
                                          + ZtMessages::kWrongPin))
        << opened.err.constData();
    EXPECT_FALSE(opened.errText().contains(QLatin1String(kWrongPin)));

    // Not even the host's debug trace carries it.
    const CliRun verbose = run({"decrypt", "-v", "--pin", kWrongPin, "--in", workFile(QStringLiteral("text.txt.env"))});
    EXPECT_EQ(verbose.exitCode, 1);
    EXPECT_FALSE(verbose.errText().contains(QLatin1String(kWrongPin)));

    const CliRun listed = run({"devices"});
    EXPECT_EQ(listed.outText(), QStringLiteral("device  application  user PIN tries left\n"
                                               "alpha   SOFTAPP      4 of 6\n"));
}

TEST_F(CliEnvelope, oneWrongPinLeavesFiveTries)
{
    ASSERT_EQ(encrypt(QStringLiteral("text.txt"), "x").exitCode, 0);
    EXPECT_EQ(run({"decrypt", "--pin", kWrongPin, "--in", workFile(QStringLiteral("text.txt.env"))}).exitCode, 1);
    EXPECT_EQ(run({"devices"}).outText(), QStringLiteral("device  application  user PIN tries left\n"
                                                         "alpha   SOFTAPP      5 of 6\n"));
}

TEST_F(CliEnvelope, missingInputFileFailsNamingThePath)
{
    const QString missing = workFile(QStringLiteral("no-such-file"));
    const CliRun opened = run({"decrypt", "--pin", kUserPin, "--in", missing});
    EXPECT_EQ(opened.exitCode, 1);
    EXPECT_TRUE(opened.errText().contains(QStringLiteral("cannot read %1").arg(missing)))
        << opened.err.constData();
    const CliRun sealed = run({"encrypt", "--cert", workFile(QStringLiteral("alpha.cert")), "--in", missing});
    EXPECT_EQ(sealed.exitCode, 1);
    EXPECT_TRUE(sealed.errText().contains(QStringLiteral("cannot read %1").arg(missing)));
    EXPECT_EQ(run({"devices"}).outText(), QStringLiteral("device  application  user PIN tries left\n"
                                                         "alpha   SOFTAPP      6 of 6\n"))
        << "a missing file costs no PIN try";
}

TEST_F(CliEnvelope, fileThatIsNoEnvelopeFailsWithTheParseMessage)
{
    writeWorkFile(QStringLiteral("plain.txt"), QByteArrayLiteral("this is not an envelope"));
    const CliRun opened = run({"decrypt", "--pin", kUserPin, "--in", workFile(QStringLiteral("plain.txt"))});
    EXPECT_EQ(opened.exitCode, 1);
    EXPECT_EQ(opened.out, QByteArray());
    EXPECT_TRUE(opened.errText().contains(QStringLiteral("WebZtDecode answered \"false\": ")
                                          + ZtMessages::kEnvelopeUnreadable))
        << opened.err.constData();
}

TEST_F(CliEnvelope, encryptRefusesWhatIsNoCertificateAndEmptyContent)
{
    writeWorkFile(QStringLiteral("junk.cert"), QByteArrayLiteral("not a certificate"));
    writeWorkFile(QStringLiteral("in.txt"), QByteArrayLiteral("x"));
    writeWorkFile(QStringLiteral("empty.txt"), QByteArray());
    const CliRun junk = run({"encrypt", "--cert", workFile(QStringLiteral("junk.cert")), "--in",
                             workFile(QStringLiteral("in.txt"))});
    EXPECT_EQ(junk.exitCode, 1);
    EXPECT_TRUE(junk.errText().contains(QStringLiteral("17 bytes that are no certificate")))
        << junk.err.constData();
    const CliRun empty = run({"encrypt", "--cert", workFile(QStringLiteral("alpha.cert")), "--in",
                              workFile(QStringLiteral("empty.txt"))});
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_TRUE(empty.errText().contains(QStringLiteral("is empty"))) << empty.err.constData();
}

TEST_F(CliEnvelope, decryptWithNoDeviceFailsWithTheNoKeyMessage)
{
    ASSERT_EQ(encrypt(QStringLiteral("text.txt"), "x").exitCode, 0);
    const QString emptyRoot = workFile(QStringLiteral("empty-root"));
    const CliRun opened = run({"decrypt", "--root", emptyRoot, "--pin", kUserPin, "--in",
                               workFile(QStringLiteral("text.txt.env"))});
    EXPECT_EQ(opened.exitCode, 1);
    EXPECT_TRUE(opened.errText().contains(QStringLiteral("WebOpenKey answered false: ")
                                          + ZtMessages::kNoKeyDevice))
        << opened.err.constData();
}

TEST_F(CliEnvelope, encryptWithAnotherCopyOfThePluginStillWorks)
{
    const QString copy = workFile(QStringLiteral("libZtCryptographic-copy.so.1"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(ZT_PLUGIN_PATH), copy));
    writeWorkFile(QStringLiteral("in.txt"), QByteArrayLiteral("through a copy"));
    const CliRun sealed = run({"encrypt", "--plugin", copy, "--cert",
                               workFile(QStringLiteral("alpha.cert")), "--in",
                               workFile(QStringLiteral("in.txt")), "--out",
                               workFile(QStringLiteral("in.env"))});
    ASSERT_EQ(sealed.exitCode, 0) << sealed.err.constData();
    const CliRun opened = run({"decrypt", "--plugin", copy, "--pin", kUserPin, "--in",
                               workFile(QStringLiteral("in.env"))});
    EXPECT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(opened.out, QByteArrayLiteral("through a copy"));
}
