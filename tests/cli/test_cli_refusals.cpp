// What encrypt refuses and what it only warns about, with its exact words: a key that is not
// SM2 is refused in one sentence naming its type, the same on every run; a certificate whose key
// usage leaves out keyEncipherment is sealed to with a warning.
#include "cli_process.h"

#include "../host/test_certificates.h"

#include <softskf/provision.h>

#include <QFileInfo>

namespace {
const QByteArray kText = QByteArrayLiteral("for the recipient\n");
} // namespace

class CliRefusal : public CliTest
{
protected:
    CliRun encryptTo(const QByteArray &certificate)
    {
        writeWorkFile(QStringLiteral("recipient.pem"), certificate);
        writeWorkFile(QStringLiteral("text.txt"), kText);
        return run({"encrypt", "--cert", workFile(QStringLiteral("recipient.pem")), "--in",
                    workFile(QStringLiteral("text.txt")), "--out", workFile(QStringLiteral("text.env"))});
    }

    void expectRefusedNaming(const QByteArray &certificate, const QString &keyType)
    {
        const QString sentence
            = QStringLiteral("zthost: the recipient certificate's key is %1, not SM2: the session "
                             "key can only be sealed to an SM2 key\n")
                  .arg(keyType);
        // Three runs, three fresh random session keys: the same sentence each time.
        for (int attempt = 0; attempt < 3; ++attempt) {
            const CliRun refused = encryptTo(certificate);
            EXPECT_EQ(refused.exitCode, 1);
            EXPECT_EQ(refused.out, QByteArray());
            EXPECT_EQ(refused.errText(), sentence);
            EXPECT_FALSE(QFileInfo::exists(workFile(QStringLiteral("text.env"))));
        }
    }
};

TEST_F(CliRefusal, rsaCertificateIsRefusedNamingItsKeyType)
{
    certtest::Key key = certtest::rsaKey();
    certtest::Certificate certificate = certtest::certificateFor(key.get());
    expectRefusedNaming(certtest::pem(certificate.get()), QStringLiteral("RSA"));
}

TEST_F(CliRefusal, p256CertificateIsRefusedNamingItsCurve)
{
    certtest::Key key = certtest::ecKey("P-256");
    certtest::Certificate certificate = certtest::certificateFor(key.get());
    expectRefusedNaming(certtest::der(certificate.get()), QStringLiteral("EC on curve prime256v1"));
}

TEST_F(CliRefusal, certificateWithoutKeyEnciphermentGetsAWarningAndTheEnvelopeStillOpens)
{
    provision(QStringLiteral("alpha"));
    // The key's signing certificate: an SM2 key whose usage is for signatures only.
    std::vector<unsigned char> signing;
    std::string error;
    ASSERT_TRUE(softskf::getCertificate(root().toStdString(), "alpha", kContainer,
                                        softskf::CertificateUsage::Signing, &signing, &error))
        << error;
    const CliRun sealed
        = encryptTo(QByteArray(reinterpret_cast<const char *>(signing.data()), int(signing.size())));
    EXPECT_EQ(sealed.exitCode, 0);
    EXPECT_EQ(sealed.errText(),
              QStringLiteral("zthost: warning: the recipient certificate's key usage "
                             "(digitalSignature, nonRepudiation) does not include keyEncipherment: "
                             "sealing to it all the same, but its holder's software may refuse to "
                             "open the envelope\n"));
    EXPECT_TRUE(QFileInfo::exists(workFile(QStringLiteral("text.env"))));
}

TEST_F(CliRefusal, encryptionCertificateSealsWithoutAWord)
{
    provision(QStringLiteral("alpha"));
    const CliRun sealed = encryptTo(storedCertificate(QStringLiteral("alpha")));
    EXPECT_EQ(sealed.exitCode, 0);
    EXPECT_EQ(sealed.err, QByteArray());
}
