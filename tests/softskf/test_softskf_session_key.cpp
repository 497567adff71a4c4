// The whole road of a digital envelope on the device: a sender SM2-wraps a random SM4 key to
// the container's encryption certificate with OpenSSL and SM4-encrypts the content; the
// device unwraps the key and decrypts the content.
#include "softskf_fixture.h"

#include <openssl/pem.h>

#include <chrono>
#include <cstdio>

using namespace softskf_test;

namespace {

HANDLE importKey(HCONTAINER container, const Bytes &blob, ULONG *rv)
{
    Bytes input = blob;
    HANDLE key = nullptr;
    *rv = SKF_ImportSessionKey(container, SGD_SM4_ECB, input.data(),
                               static_cast<ULONG>(input.size()), &key);
    return key;
}

} // namespace

class SoftSkfSessionKey : public SoftSkfTest
{
protected:
    // `sessionKey` wrapped for device "dev", imported into the session's container and made
    // ready to decrypt with `padding`; null (and a test failure) when a step is refused.
    HANDLE readyKey(const Session &session, const Bytes &sessionKey, ULONG padding)
    {
        ULONG rv = 0;
        HANDLE key = importKey(session.container,
                               wrapForCertificate(encryptionCertificate(root(), "dev"), sessionKey),
                               &rv);
        EXPECT_EQ(rv, SAR_OK);
        if (key)
            EXPECT_EQ(SKF_DecryptInit(key, paddingParam(padding)), SAR_OK);
        return key;
    }
};

class SoftSkfRoundTrip : public SoftSkfTest, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(SoftSkfRoundTrip, contentComesBackAfterImportAndDecrypt)
{
    provision("dev");
    const Bytes sessionKey = randomBytes(16);
    const Bytes content = randomBytes(GetParam());
    const Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), sessionKey);
    ASSERT_EQ(blob.size(), 180u);

    Session session = open("dev");
    ULONG rv = 0;
    HANDLE key = importKey(session.container, blob, &rv);
    ASSERT_EQ(rv, SAR_OK);
    ASSERT_EQ(SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING)), SAR_OK);
    const Bytes cipher = sm4EcbEncrypt(sessionKey, content);
    Bytes plain;
    ASSERT_EQ(decryptAll(key, cipher, &plain), SAR_OK);
    EXPECT_EQ(plain, content);
    EXPECT_EQ(SKF_CloseHandle(key), SAR_OK);
    close(session);
}

INSTANTIATE_TEST_SUITE_P(ContentSizes, SoftSkfRoundTrip,
                         ::testing::Values(0, 1, 15, 16, 17, 1024 * 1024));

TEST_F(SoftSkfSessionKey, unpaddedContentOfWholeBlocksComesBack)
{
    provision("dev");
    const Bytes sessionKey = randomBytes(16);
    const Bytes content = randomBytes(64);
    Session session = open("dev");
    HANDLE key = readyKey(session, sessionKey, SKF_NO_PADDING);
    ASSERT_NE(key, nullptr);
    Bytes plain;
    ASSERT_EQ(decryptAll(key, sm4EcbEncrypt(sessionKey, content, false), &plain), SAR_OK);
    EXPECT_EQ(plain, content);
    close(session);
}

TEST_F(SoftSkfSessionKey, sixtyFourMebibytesDecryptInPlace)
{
    provision("dev");
    const Bytes sessionKey = randomBytes(16);
    const Bytes content = randomBytes(64u * 1024 * 1024);
    Session session = open("dev");
    HANDLE key = readyKey(session, sessionKey, SKF_PKCS7_PADDING);
    ASSERT_NE(key, nullptr);
    Bytes buffer = sm4EcbEncrypt(sessionKey, content);
    ULONG length = static_cast<ULONG>(buffer.size());
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(SKF_Decrypt(key, buffer.data(), static_cast<ULONG>(buffer.size()), buffer.data(), &length),
              SAR_OK);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    std::printf("SKF_Decrypt of 64 MiB: %.0f ms\n", ms);
    RecordProperty("decrypt_64mib_ms", std::to_string(ms));
    ASSERT_EQ(length, content.size());
    buffer.resize(length);
    EXPECT_TRUE(buffer == content);
    close(session);
}

TEST_F(SoftSkfSessionKey, sizeQueryAndShortBufferAnswerTheLengths)
{
    provision("dev");
    const Bytes sessionKey = randomBytes(16);
    const Bytes content = randomBytes(20);
    Session session = open("dev");
    HANDLE key = readyKey(session, sessionKey, SKF_PKCS7_PADDING);
    ASSERT_NE(key, nullptr);
    Bytes cipher = sm4EcbEncrypt(sessionKey, content);
    ASSERT_EQ(cipher.size(), 32u);
    ULONG length = 0;
    ASSERT_EQ(SKF_Decrypt(key, cipher.data(), 32, nullptr, &length), SAR_OK);
    EXPECT_EQ(length, 32u);  // an upper bound
    Bytes plain(19);
    length = 19;
    EXPECT_EQ(SKF_Decrypt(key, cipher.data(), 32, plain.data(), &length), SAR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 20u);  // the exact length
    plain.resize(20);
    length = 20;
    ASSERT_EQ(SKF_Decrypt(key, cipher.data(), 32, plain.data(), &length), SAR_OK);
    EXPECT_EQ(length, 20u);
    EXPECT_EQ(plain, content);
    // A finished decryption needs a new SKF_DecryptInit.
    EXPECT_EQ(SKF_Decrypt(key, cipher.data(), 32, plain.data(), &length), SAR_NOTINITIALIZEERR);
    close(session);
}

TEST_F(SoftSkfSessionKey, importBeforeLoginAnswersUserNotLoggedIn)
{
    provision("dev");
    const Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    Session session = open("dev", false);
    ULONG rv = 0;
    EXPECT_EQ(importKey(session.container, blob, &rv), nullptr);
    EXPECT_EQ(rv, SAR_USER_NOT_LOGGED_IN);
    close(session);
}

TEST_F(SoftSkfSessionKey, clearSecureStateForgetsTheLogin)
{
    provision("dev");
    const Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    Session session = open("dev");
    ULONG rv = 0;
    HANDLE key = importKey(session.container, blob, &rv);
    EXPECT_EQ(rv, SAR_OK);
    ASSERT_EQ(SKF_ClearSecureState(session.application), SAR_OK);
    importKey(session.container, blob, &rv);
    EXPECT_EQ(rv, SAR_USER_NOT_LOGGED_IN);
    // A key imported before stays usable.
    EXPECT_EQ(SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING)), SAR_OK);
    close(session);
}

TEST_F(SoftSkfSessionKey, keyWrappedForAnotherDeviceIsRefused)
{
    provision("mine");
    provision("theirs");
    const Bytes blob = wrapForCertificate(encryptionCertificate(root(), "theirs"), randomBytes(16));
    Session session = open("mine");
    ULONG rv = 0;
    EXPECT_EQ(importKey(session.container, blob, &rv), nullptr);
    EXPECT_EQ(rv, SAR_INDATAERR);
    close(session);
}

TEST_F(SoftSkfSessionKey, unknownAlgorithmAnswersNotSupported)
{
    provision("dev");
    Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    Session session = open("dev");
    HANDLE key = nullptr;
    EXPECT_EQ(SKF_ImportSessionKey(session.container, SGD_SM1_ECB, blob.data(),
                                   static_cast<ULONG>(blob.size()), &key),
              SAR_NOTSUPPORTYETERR);
    EXPECT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, nullptr, 180, &key),
              SAR_INVALIDPARAMERR);
    EXPECT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, blob.data(), 180, nullptr),
              SAR_INVALIDPARAMERR);
    close(session);
}

TEST_F(SoftSkfSessionKey, wrappedValueThatIsNotAnSm4KeyIsRefused)
{
    provision("dev");
    const Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(24));
    ASSERT_EQ(blob.size(), 188u);
    Session session = open("dev");
    ULONG rv = 0;
    EXPECT_EQ(importKey(session.container, blob, &rv), nullptr);
    EXPECT_EQ(rv, SAR_INDATAERR);
    close(session);
}

TEST_F(SoftSkfSessionKey, rsaContainerIsTypeOneAndImportsNoSm2Key)
{
    provision("dev");
    softskf::ContainerOptions options;
    options.name = "A-RSA";
    options.type = softskf::ContainerType::Rsa;
    options.rsaBits = 1024;
    std::string error;
    ASSERT_TRUE(softskf::addContainer(root(), "dev", kUserPin, options, &error)) << error;
    Session session = open("dev", true, "A-RSA");
    ULONG type = 0;
    ASSERT_EQ(SKF_GetContainerType(session.container, &type), SAR_OK);
    EXPECT_EQ(type, static_cast<ULONG>(CONTAINER_TYPE_RSA));
    const Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    ULONG rv = 0;
    importKey(session.container, blob, &rv);
    EXPECT_EQ(rv, SAR_NOTSUPPORTYETERR);
    close(session);
}

TEST_F(SoftSkfSessionKey, exportedPrivateKeyDecryptsWhatTheDeviceDecrypts)
{
    provision("dev");
    std::string pem, error;
    EXPECT_FALSE(softskf::exportEncryptionPrivateKeyPem(root(), "dev", kContainer, "wrong-pin",
                                                        &pem, &error));
    EXPECT_NE(error.find("wrong user PIN"), std::string::npos) << error;
    ASSERT_TRUE(softskf::exportEncryptionPrivateKeyPem(root(), "dev", kContainer, kUserPin, &pem,
                                                       &error))
        << error;
    // Exporting with a wrong PIN counted no try.
    Session session = open("dev", false);
    ULONG max = 0, left = 0;
    BOOL isDefault = FALSE;
    ASSERT_EQ(SKF_GetPINInfo(session.application, USER_TYPE, &max, &left, &isDefault), SAR_OK);
    EXPECT_EQ(left, max);
    close(session);

    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    ASSERT_TRUE(key);
    EXPECT_TRUE(EVP_PKEY_is_a(key.get(), "SM2"));
    // The exported key matches the certificate's public key.
    const Bytes certificate = encryptionCertificate(root(), "dev");
    const unsigned char *cursor = certificate.data();
    std::unique_ptr<X509, decltype(&X509_free)> x509(
        d2i_X509(nullptr, &cursor, static_cast<long>(certificate.size())), X509_free);
    ASSERT_TRUE(x509);
    EXPECT_EQ(X509_check_private_key(x509.get(), key.get()), 1);
}
