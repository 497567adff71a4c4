// End to end: a provisioned software key, the real host and the built plug-in, driven by name.

#include "e2e_host.h"

#include "openssl_envelope.h"
#include "qt_printers.h"
#include "sealer/envelope_sealer.h"
#include "zt_envelope_data.h"

namespace {

constexpr qulonglong kNoKeyDeviceCode = 1000;
constexpr qulonglong kWrongPinCode = 1007;
constexpr qulonglong kKeyDeviceMismatchCode = 0x2002;
constexpr qulonglong kDecryptFailedCode = 0x2004;
constexpr qulonglong kContainerNotFoundCode = 0x0B000035;

QString base64(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

} // namespace

TEST_F(EndToEnd, noDeviceMeansNoKey)
{
    startHost();
    EXPECT_FALSE(openKey());
    EXPECT_EQ(lastErrorMessage(), messageOf(kNoKeyDeviceCode));
    EXPECT_FALSE(verifyPin(QLatin1String(kUserPin)));
    EXPECT_EQ(lastErrorMessage(), messageOf(kNoKeyDeviceCode));
}

TEST_F(EndToEnd, wrongPinCountsOneTryThatStaysCountedAfterReopening)
{
    provision(QStringLiteral("alpha"), 6);
    startHost();
    ASSERT_TRUE(openKey());

    EXPECT_FALSE(verifyPin(QLatin1String(kWrongPin)));
    EXPECT_EQ(lastErrorMessage(), messageOf(kWrongPinCode));
    EXPECT_TRUE(hostLogText().contains(QStringLiteral("5 tries left for the user PIN")))
        << hostLogText().toStdString();

    EXPECT_TRUE(closeKey());
    ASSERT_TRUE(openKey());
    EXPECT_FALSE(verifyPin(QLatin1String(kWrongPin)));
    EXPECT_TRUE(hostLogText().contains(QStringLiteral("4 tries left for the user PIN")))
        << hostLogText().toStdString();

    EXPECT_TRUE(verifyPin(QLatin1String(kUserPin)));
    EXPECT_FALSE(hostLogText().contains(QLatin1String(kWrongPin)));
    EXPECT_FALSE(hostLogText().contains(QLatin1String(kUserPin)));
}

TEST_F(EndToEnd, certificateIsTheProvisionedOne)
{
    provision(QStringLiteral("alpha"));
    startHost();
    ASSERT_TRUE(openKey());
    ASSERT_TRUE(verifyPin(QLatin1String(kUserPin)));
    EXPECT_EQ(certificateData(), base64(storedCertificate(QStringLiteral("alpha"))));
}

TEST_F(EndToEnd, envelopesMadeWithOpenSslOpenOnTheKey)
{
    provision(QStringLiteral("alpha"));
    startHost();
    ASSERT_TRUE(openKey());
    ASSERT_TRUE(verifyPin(QLatin1String(kUserPin)));
    const QByteArray certificate = QByteArray::fromBase64(certificateData().toLatin1());
    ASSERT_FALSE(certificate.isEmpty());

    struct Row
    {
        int size;
        const char *reason;
    };
    const Row rows[] = {
        {1, "one byte"},
        {15, "one short of a block"},
        {16, "exactly one block: a whole block of padding follows"},
        {17, "one past a block"},
        {1 << 20, "one MiB"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        const QByteArray content = randomBytes(row.size);
        const QByteArray envelope = makeEnvelopeWithOpenSsl(certificate, content);
        ASSERT_FALSE(envelope.isEmpty());
        EXPECT_EQ(decode(base64(envelope)), base64(content));
    }
}

TEST_F(EndToEnd, envelopeBuiltByTheLibraryForTheKeysCertificateOpensOnTheKey)
{
    provision(QStringLiteral("alpha"));
    startHost();
    ASSERT_TRUE(openKey());
    ASSERT_TRUE(verifyPin(QLatin1String(kUserPin)));
    const QByteArray certificate = QByteArray::fromBase64(certificateData().toLatin1());
    EvpPkeyPtr recipient = publicKeyOfCertificate(certificate);
    ASSERT_NE(recipient, nullptr);

    const QByteArray sessionKey = randomBytes(16);
    Sm2CiphertextFields fields;
    ASSERT_TRUE(splitSm2Ciphertext(sm2Encrypt(recipient.get(), sessionKey), &fields));
    const QByteArray content = QByteArrayLiteral("sealed by ZtEnvelopeData, opened by the key");

    // The plug-in this test links is the file the host loaded, so the envelope class works
    // through the core the host installed.
    ZtEnvelopeData envelope;
    envelope.SetRecCert(certificate);
    envelope.SetEncKeyData(packedKeyData(fields));
    envelope.SetEncContent(sm4EcbEncrypt(sessionKey, content));
    const QByteArray built = envelope.build();
    ASSERT_FALSE(built.isEmpty());

    EXPECT_EQ(decode(base64(built)), base64(content));
}

TEST_F(EndToEnd, envelopesFromTheSealerAndFromTheLibraryBuilderBothOpenOnTheKey)
{
    provision(QStringLiteral("alpha"));
    startHost();
    ASSERT_TRUE(openKey());
    ASSERT_TRUE(verifyPin(QLatin1String(kUserPin)));
    const QByteArray certificate = QByteArray::fromBase64(certificateData().toLatin1());
    const QByteArray content = QByteArrayLiteral("sealed on the host, opened on the key");
    const QByteArray sessionKey = randomBytes(16);
    QString error;
    const QByteArray sealed = zthost::sealEnvelope(certificate, content, sessionKey, &error);
    ASSERT_FALSE(sealed.isEmpty()) << error.toStdString();

    // The library's builder, given the very parts the sealer used: its session-key ciphertext
    // and the same encrypted content.
    DerNode root;
    ASSERT_TRUE(parseDer(sealed, &root));
    const DerNode *encryptedKey = &root;
    for (int index : {1, 0, 1, 0, 3}) // [0] EnvelopedData, RecipientInfo, encryptedKey
        encryptedKey = encryptedKey ? encryptedKey->child(index) : nullptr;
    ASSERT_NE(encryptedKey, nullptr);
    Sm2CiphertextFields fields;
    ASSERT_TRUE(splitSm2Ciphertext(encryptedKey->content, &fields));
    ZtEnvelopeData builder;
    builder.SetRecCert(certificate);
    builder.SetEncKeyData(packedKeyData(fields));
    builder.SetEncContent(sm4EcbEncrypt(sessionKey, content));
    const QByteArray built = builder.build();
    ASSERT_FALSE(built.isEmpty());

    EXPECT_EQ(decode(base64(sealed)), base64(content));
    EXPECT_EQ(decode(base64(built)), base64(content));
    // Whole coordinates leave the two writers nothing to differ on.
    EXPECT_EQ(built.toHex(), sealed.toHex());
}

TEST_F(EndToEnd, emptyContentIsADecryptFailure)
{
    provision(QStringLiteral("alpha"));
    startHost();
    ASSERT_TRUE(openKey());
    ASSERT_TRUE(verifyPin(QLatin1String(kUserPin)));
    const QByteArray envelope = makeEnvelopeOfNoContent(storedCertificate(QStringLiteral("alpha")));
    ASSERT_FALSE(envelope.isEmpty());
    EXPECT_EQ(decode(base64(envelope)), QStringLiteral("false"));
    EXPECT_EQ(lastErrorMessage(), messageOf(kDecryptFailedCode));
}

TEST_F(EndToEnd, envelopeForAnotherDeviceIsAMismatch)
{
    provision(QStringLiteral("alpha"));
    provision(QStringLiteral("bravo"));
    startHost();
    ASSERT_TRUE(openKey());
    ASSERT_TRUE(verifyPin(QLatin1String(kUserPin)));
    const QByteArray envelope = makeEnvelopeWithOpenSsl(storedCertificate(QStringLiteral("bravo")),
                                                        QByteArrayLiteral("for bravo only"));
    ASSERT_FALSE(envelope.isEmpty());
    EXPECT_EQ(decode(base64(envelope)), QStringLiteral("false"));
    EXPECT_EQ(lastErrorMessage(), messageOf(kKeyDeviceMismatchCode));
}

TEST_F(EndToEnd, twoDevicesOpenTheFirstInNameOrder)
{
    provision(QStringLiteral("zulu")); // made first, listed second
    provision(QStringLiteral("alpha"));
    startHost();
    ASSERT_TRUE(openKey());
    ASSERT_TRUE(verifyPin(QLatin1String(kUserPin)));
    EXPECT_EQ(certificateData(), base64(storedCertificate(QStringLiteral("alpha"))));
}

TEST_F(EndToEnd, pinLocksAfterItsRetries)
{
    constexpr unsigned kRetries = 3;
    provision(QStringLiteral("alpha"), kRetries);
    startHost();
    ASSERT_TRUE(openKey());
    for (unsigned i = 0; i < kRetries; ++i) {
        SCOPED_TRACE(i);
        EXPECT_FALSE(verifyPin(QLatin1String(kWrongPin)));
        EXPECT_EQ(lastErrorMessage(), messageOf(kWrongPinCode));
    }
    EXPECT_FALSE(verifyPin(QLatin1String(kUserPin)));
    EXPECT_EQ(lastErrorMessage(), messageOf(kWrongPinCode));
    EXPECT_TRUE(hostLogText().contains(QStringLiteral("SAR_PIN_LOCKED")))
        << hostLogText().toStdString();
    EXPECT_EQ(certificateData(), base64(storedCertificate(QStringLiteral("alpha"))))
        << "reading the certificate needs no PIN";
}

TEST_F(EndToEnd, removedDeviceFolderGivesFailuresNotACrash)
{
    provision(QStringLiteral("alpha"));
    const QByteArray envelope = makeEnvelopeWithOpenSsl(storedCertificate(QStringLiteral("alpha")),
                                                        QByteArrayLiteral("never opened"));
    startHost();
    ASSERT_TRUE(openKey());
    unplug(QStringLiteral("alpha"));

    EXPECT_FALSE(verifyPin(QLatin1String(kUserPin)));
    EXPECT_EQ(lastErrorMessage(), messageOf(kWrongPinCode));
    EXPECT_EQ(certificateData(), QStringLiteral("false"));
    EXPECT_EQ(lastErrorMessage(), messageOf(kContainerNotFoundCode));
    EXPECT_EQ(decode(base64(envelope)), QStringLiteral("false"));
    EXPECT_EQ(lastErrorMessage(), messageOf(kContainerNotFoundCode));
    EXPECT_TRUE(closeKey());
    EXPECT_FALSE(openKey());
    EXPECT_EQ(lastErrorMessage(), messageOf(kNoKeyDeviceCode));
    EXPECT_TRUE(hostLogText().contains(QStringLiteral("SAR_DEVICE_REMOVED")))
        << hostLogText().toStdString();
}

TEST_F(EndToEnd, pluginTraceReachesTheHostLogAtDebugLevel)
{
    provision(QStringLiteral("alpha"));
    startHost();
    ASSERT_TRUE(openKey());
    EXPECT_TRUE(hostLogText().contains(QStringLiteral("[debug] [WebOpenKey:")))
        << hostLogText().toStdString();
}

TEST_F(EndToEnd, reclaimKeepsManyDecodesBounded)
{
    constexpr int kCalls = 50;
    provision(QStringLiteral("alpha"));
    startHost();
    ASSERT_TRUE(openKey());
    ASSERT_TRUE(verifyPin(QLatin1String(kUserPin)));
    const QByteArray content = QByteArrayLiteral("bounded");
    const QString envelope = base64(
        makeEnvelopeWithOpenSsl(storedCertificate(QStringLiteral("alpha")), content));

    const int madeBefore = core().perOperationComponentsMade();
    ASSERT_EQ(decode(envelope), base64(content));
    const int perCall = core().perOperationComponentsMade() - madeBefore;
    EXPECT_GT(perCall, 0) << "opening an envelope uses the ASN.1 and certificate components";
    EXPECT_EQ(core().outstandingPerOperationComponents(), 0) << "the session reclaims after a call";
    for (int i = 0; i < kCalls; ++i) {
        const int made = core().perOperationComponentsMade();
        ASSERT_EQ(decode(envelope), base64(content));
        EXPECT_EQ(core().perOperationComponentsMade() - made, perCall);
        EXPECT_EQ(core().outstandingPerOperationComponents(), 0);
    }
}
