// Secrets on disk: the encryption private key (its raw scalar and its PKCS#8 DER), the user PIN
// and a session key are never in any file of the root, after provisioning, after a login and
// after a decryption; the root, the device folder and every file in it stay owner-only, also
// when the process runs with a permissive umask.
#include "test_softskf_robust_support.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include <sys/stat.h>

using namespace softskf_test;
using namespace softskf_robust;
namespace fs = std::filesystem;

namespace {

constexpr char kDevice[] = "dev";

struct Needle
{
    const char *what;
    Bytes bytes;
};

// The raw scalar and the PKCS#8 DER of the device's encryption private key.
std::vector<Needle> privateKeyForms(const std::string &root)
{
    std::string pem, error;
    EXPECT_TRUE(softskf::exportEncryptionPrivateKeyPem(root, kDevice, kContainer, kUserPin, &pem,
                                                       &error))
        << error;
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(
        BIO_new_mem_buf(pem.data(), int(pem.size())), BIO_free);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    if (!key) {
        ADD_FAILURE() << "the exported key does not read";
        return {};
    }
    BIGNUM *scalar = nullptr;
    EXPECT_EQ(EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_PRIV_KEY, &scalar), 1);
    Bytes raw(32);
    EXPECT_EQ(BN_bn2binpad(scalar, raw.data(), 32), 32);
    BN_clear_free(scalar);

    std::unique_ptr<PKCS8_PRIV_KEY_INFO, decltype(&PKCS8_PRIV_KEY_INFO_free)> info(
        EVP_PKEY2PKCS8(key.get()), PKCS8_PRIV_KEY_INFO_free);
    unsigned char *der = nullptr;
    const int length = i2d_PKCS8_PRIV_KEY_INFO(info.get(), &der);
    EXPECT_GT(length, 0);
    Bytes pkcs8(der, der + std::max(length, 0));
    OPENSSL_clear_free(der, std::size_t(std::max(length, 0)));
    // Shorter distinctive pieces too: a key split across a file's blocks still shows the scalar.
    return {{"private scalar", raw},
            {"private scalar, first half", Bytes(raw.begin(), raw.begin() + 16)},
            {"private scalar, second half", Bytes(raw.begin() + 16, raw.end())},
            {"PKCS#8 DER", pkcs8}};
}

// Every file under `folder`, by path, that holds one of the needles.
void expectNoSecretOnDisk(const std::string &folder, const std::vector<Needle> &needles,
                          const char *when)
{
    SCOPED_TRACE(when);
    int files = 0;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file())
            continue;
        ++files;
        const Bytes bytes = readAll(entry.path().string());
        for (const Needle &needle : needles) {
            EXPECT_TRUE(std::search(bytes.begin(), bytes.end(), needle.bytes.begin(),
                                    needle.bytes.end())
                        == bytes.end())
                << needle.what << " in clear in " << entry.path();
        }
    }
    EXPECT_GE(files, 8) << "the scan found fewer files than a device has";
}

void expectOwnerOnly(const std::string &root, const char *when)
{
    SCOPED_TRACE(when);
    struct stat info {};
    ASSERT_EQ(::stat(root.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700u) << root;
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        ASSERT_EQ(::lstat(entry.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, entry.is_directory() ? 0700u : 0600u) << entry.path();
    }
}

} // namespace

class SoftSkfRobustSecrets : public SoftSkfTest {};

TEST_F(SoftSkfRobustSecrets, noPrivateKeyPinOrSessionKeyInClearAndEverythingOwnerOnly)
{
    // Anything the driver forgot to restrict would come out world-writable.
    const mode_t previousUmask = ::umask(0);
    provision(kDevice);
    const std::vector<Needle> keyForms = privateKeyForms(root());
    std::vector<Needle> needles = keyForms;
    needles.push_back({"user PIN", Bytes(kUserPin, kUserPin + sizeof kUserPin - 1)});
    expectNoSecretOnDisk(root(), needles, "after provisioning");
    expectOwnerOnly(root(), "after provisioning");

    Session session = open(kDevice, false);
    ULONG retries = 0;
    char wrong[] = "wrong-pin";
    EXPECT_EQ(SKF_VerifyPIN(session.application, USER_TYPE, wrong, &retries), SAR_PIN_INCORRECT);
    char pin[] = "12345678";
    EXPECT_EQ(SKF_VerifyPIN(session.application, USER_TYPE, pin, &retries), SAR_OK);
    expectNoSecretOnDisk(root(), needles, "after a failed and a right PIN");
    expectOwnerOnly(root(), "after the counter was rewritten");

    const Bytes sessionKey = randomBytes(16);
    Bytes blob = wrapForCertificate(encryptionCertificate(root(), kDevice), sessionKey);
    HANDLE key = nullptr;
    ASSERT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, blob.data(), ULONG(blob.size()),
                                   &key),
              SAR_OK);
    ASSERT_EQ(SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING)), SAR_OK);
    const Bytes plain(100, 'p');
    Bytes out;
    ASSERT_EQ(decryptAll(key, sm4EcbEncrypt(sessionKey, plain), &out), SAR_OK);
    EXPECT_EQ(out, plain);
    needles.push_back({"session key", sessionKey});
    expectNoSecretOnDisk(root(), needles, "after a decryption");
    EXPECT_EQ(SKF_CloseHandle(key), SAR_OK);
    close(session);
    expectNoSecretOnDisk(root(), needles, "after disconnecting");
    expectOwnerOnly(root(), "at the end");
    ::umask(previousUmask);
}
