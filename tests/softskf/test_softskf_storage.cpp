// What the device leaves on disk and how it copes with the disk changing under it: folder
// and file modes, no private key in clear, a device folder removed while connected, and
// damaged files.
#include "softskf_fixture.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <filesystem>

#include <sys/stat.h>

using namespace softskf_test;
namespace fs = std::filesystem;

namespace {

mode_t modeOf(const std::string &path)
{
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
}

Bytes privateScalar(const std::string &pem)
{
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    EXPECT_TRUE(key);
    BIGNUM *priv = nullptr;
    EXPECT_EQ(EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_PRIV_KEY, &priv), 1);
    Bytes scalar(32);
    EXPECT_EQ(BN_bn2binpad(priv, scalar.data(), 32), 32);
    BN_clear_free(priv);
    return scalar;
}

bool contains(const Bytes &haystack, const Bytes &needle)
{
    return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) != haystack.end();
}

} // namespace

class SoftSkfStorage : public SoftSkfTest {};

TEST_F(SoftSkfStorage, foldersAreOwnerOnlyAndFilesOwnerReadWrite)
{
    const mode_t previous = ::umask(022);
    provision("dev");
    ::umask(previous);
    EXPECT_EQ(modeOf(root()), 0700u);
    for (const auto &entry : fs::recursive_directory_iterator(devicePath("dev"))) {
        SCOPED_TRACE(entry.path().string());
        EXPECT_EQ(modeOf(entry.path().string()), entry.is_directory() ? 0700u : 0600u);
    }
    EXPECT_EQ(modeOf(devicePath("dev")), 0700u);
}

TEST_F(SoftSkfStorage, privateKeyIsNeverInClearOnDisk)
{
    provision("dev");
    std::string pem, error;
    ASSERT_TRUE(softskf::exportEncryptionPrivateKeyPem(root(), "dev", kContainer, kUserPin, &pem, &error))
        << error;
    const Bytes scalar = privateScalar(pem);
    Bytes reversed = scalar;
    std::reverse(reversed.begin(), reversed.end());
    int files = 0;
    for (const auto &entry : fs::recursive_directory_iterator(root())) {
        if (!entry.is_regular_file())
            continue;
        ++files;
        const Bytes bytes = readAll(entry.path().string());
        EXPECT_FALSE(contains(bytes, scalar)) << entry.path();
        EXPECT_FALSE(contains(bytes, reversed)) << entry.path();
    }
    EXPECT_GE(files, 8);
    // Logging in and unwrapping leaves nothing new behind either.
    Session session = open("dev");
    Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    HANDLE key = nullptr;
    ASSERT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, blob.data(),
                                   static_cast<ULONG>(blob.size()), &key),
              SAR_OK);
    close(session);
    for (const auto &entry : fs::recursive_directory_iterator(root())) {
        if (entry.is_regular_file()) {
            EXPECT_FALSE(contains(readAll(entry.path().string()), scalar)) << entry.path();
        }
    }
}

TEST_F(SoftSkfStorage, exportedCertificateEqualsTheProvisionedOne)
{
    provision("dev");
    Session session = open("dev", false);
    ULONG length = 0;
    ASSERT_EQ(SKF_ExportCertificate(session.container, FALSE, nullptr, &length), SAR_OK);
    Bytes certificate(length);
    ULONG small = length - 1;
    EXPECT_EQ(SKF_ExportCertificate(session.container, FALSE, certificate.data(), &small),
              SAR_BUFFER_TOO_SMALL);
    EXPECT_EQ(small, length);
    ASSERT_EQ(SKF_ExportCertificate(session.container, FALSE, certificate.data(), &length), SAR_OK);
    EXPECT_EQ(certificate, encryptionCertificate(root(), "dev"));
    EXPECT_EQ(certificate, readAll(containerPath("dev") + "/enc.cer"));

    ULONG signLength = 0;
    ASSERT_EQ(SKF_ExportCertificate(session.container, TRUE, nullptr, &signLength), SAR_OK);
    Bytes signing(signLength);
    ASSERT_EQ(SKF_ExportCertificate(session.container, TRUE, signing.data(), &signLength), SAR_OK);
    EXPECT_NE(signing, certificate);

    ULONG type = 0;
    ASSERT_EQ(SKF_GetContainerType(session.container, &type), SAR_OK);
    EXPECT_EQ(type, static_cast<ULONG>(CONTAINER_TYPE_SM2));
    close(session);
}

TEST_F(SoftSkfStorage, certificatesAreSm2WithTheRightUsage)
{
    provision("dev");
    const Bytes der = encryptionCertificate(root(), "dev");
    const unsigned char *cursor = der.data();
    std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &cursor, static_cast<long>(der.size())), X509_free);
    ASSERT_TRUE(certificate);
    // id-ecPublicKey with the SM2 curve.
    X509_PUBKEY *publicKey = X509_get_X509_PUBKEY(certificate.get());
    ASN1_OBJECT *algorithm = nullptr;
    const void *parameter = nullptr;
    int parameterType = 0;
    X509_ALGOR *algor = nullptr;
    ASSERT_EQ(X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, &algor, publicKey), 1);
    EXPECT_EQ(OBJ_obj2nid(algorithm), NID_X9_62_id_ecPublicKey);
    X509_ALGOR_get0(nullptr, &parameterType, &parameter, algor);
    ASSERT_EQ(parameterType, V_ASN1_OBJECT);
    EXPECT_EQ(OBJ_obj2nid(static_cast<const ASN1_OBJECT *>(parameter)), NID_sm2);
    EXPECT_EQ(X509_get_signature_nid(certificate.get()), NID_SM2_with_SM3);
    const uint32_t usage = X509_get_key_usage(certificate.get());
    EXPECT_TRUE(usage & KU_KEY_ENCIPHERMENT);
    EXPECT_TRUE(usage & KU_DATA_ENCIPHERMENT);
    EXPECT_FALSE(usage & KU_DIGITAL_SIGNATURE);
    char cn[64] = {};
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, cn, sizeof cn);
    EXPECT_STREQ(cn, "dev");
    const ASN1_INTEGER *serial = X509_get0_serialNumber(certificate.get());
    EXPECT_FALSE(serial->type & V_ASN1_NEG);
}

TEST_F(SoftSkfStorage, missingCertificateAnswersCertNotFound)
{
    provision("dev");
    softskf::ContainerOptions options;
    options.name = "encrypt-only";
    options.withSigningPair = false;
    std::string error;
    ASSERT_TRUE(softskf::addContainer(root(), "dev", kUserPin, options, &error)) << error;
    EXPECT_FALSE(softskf::addContainer(root(), "dev", "wrong-pin", options, &error));
    Session session = open("dev", false, "encrypt-only");
    ULONG length = 0;
    EXPECT_EQ(SKF_ExportCertificate(session.container, TRUE, nullptr, &length), SAR_CERTNOTFOUNTERR);
    EXPECT_EQ(SKF_ExportCertificate(session.container, FALSE, nullptr, &length), SAR_OK);
    HCONTAINER missing = nullptr;
    char absent[] = "absent";
    EXPECT_EQ(SKF_OpenContainer(session.application, absent, &missing), SAR_FILE_NOT_EXIST);
    close(session);
}

TEST_F(SoftSkfStorage, removedDeviceFolderAnswersDeviceRemoved)
{
    provision("dev");
    const Bytes sessionKey = randomBytes(16);
    Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), sessionKey);
    Session session = open("dev");
    HANDLE key = nullptr;
    ASSERT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, blob.data(),
                                   static_cast<ULONG>(blob.size()), &key),
              SAR_OK);
    fs::remove_all(devicePath("dev"));

    char pin[] = "12345678", name[] = "SM2Container";
    ULONG a = 0, b = 0, size = 64;
    BOOL flag = FALSE;
    DEVINFO info;
    HANDLE out = nullptr;
    BYTE buffer[64] = {};
    EXPECT_EQ(SKF_GetDevInfo(session.device, &info), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_EnumApplication(session.device, nullptr, &size), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_VerifyPIN(session.application, USER_TYPE, pin, &a), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_GetPINInfo(session.application, USER_TYPE, &a, &b, &flag), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_EnumContainer(session.application, nullptr, &size), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_OpenContainer(session.application, name, &out), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_GetContainerType(session.container, &a), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_ExportCertificate(session.container, FALSE, buffer, &size), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, blob.data(),
                                   static_cast<ULONG>(blob.size()), &out),
              SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING)), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_Decrypt(key, buffer, 16, buffer, &size), SAR_DEVICE_REMOVED);
    EXPECT_EQ(SKF_ClearSecureState(session.application), SAR_OK);
    close(session);
    DEVHANDLE device = nullptr;
    char deviceName[] = "dev";
    EXPECT_EQ(SKF_ConnectDev(deviceName, &device), SAR_DEVICE_REMOVED);
}

namespace {

enum class Damage { Truncated, Garbage, Empty };

Bytes damage(const Bytes &original, Damage kind)
{
    switch (kind) {
    case Damage::Truncated:
        return Bytes(original.begin(), original.begin() + static_cast<long>(original.size() / 2));
    case Damage::Garbage:
        return randomBytes(original.size());
    case Damage::Empty:
        return {};
    }
    return {};
}

const char *damageName(Damage kind)
{
    return kind == Damage::Truncated ? "truncated" : kind == Damage::Garbage ? "garbage" : "empty";
}

// The call that reads the damaged file, on a fresh connection.
ULONG callReading(const std::string &file, const Bytes &blob)
{
    DEVHANDLE device = nullptr;
    char name[] = "dev", app[] = "SOFTAPP", pin[] = "12345678", container[] = "SM2Container";
    ULONG rv = SKF_ConnectDev(name, &device);
    if (file == "device.dat")
        return rv;
    HAPPLICATION application = nullptr;
    HCONTAINER hContainer = nullptr;
    ULONG retries = 0;
    EXPECT_EQ(SKF_OpenApplication(device, app, &application), SAR_OK);
    rv = SKF_VerifyPIN(application, USER_TYPE, pin, &retries);
    if (file == "SOFTAPP/user.pin" || rv != SAR_OK) {
        SKF_DisConnectDev(device);
        return rv;
    }
    rv = SKF_OpenContainer(application, container, &hContainer);
    if (file != "SOFTAPP/SM2Container/container.dat") {
        EXPECT_EQ(rv, SAR_OK);
        if (file == "SOFTAPP/SM2Container/enc.cer") {
            ULONG length = 0;
            rv = SKF_ExportCertificate(hContainer, FALSE, nullptr, &length);
        } else {
            Bytes input = blob;
            HANDLE key = nullptr;
            rv = SKF_ImportSessionKey(hContainer, SGD_SM4_ECB, input.data(),
                                      static_cast<ULONG>(input.size()), &key);
        }
    }
    SKF_DisConnectDev(device);
    return rv;
}

} // namespace

TEST_F(SoftSkfStorage, damagedFilesAnswerAnErrorCode)
{
    provision("dev");
    const Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    ASSERT_EQ(callReading("SOFTAPP/SM2Container/enc.key", blob), SAR_OK);
    const char *files[] = {"device.dat", "SOFTAPP/user.pin", "SOFTAPP/SM2Container/container.dat",
                           "SOFTAPP/SM2Container/enc.cer", "SOFTAPP/SM2Container/enc.key"};
    for (const char *file : files) {
        const std::string path = devicePath("dev") + "/" + file;
        const Bytes original = readAll(path);
        for (Damage kind : {Damage::Truncated, Damage::Garbage, Damage::Empty}) {
            SCOPED_TRACE(std::string(file) + " " + damageName(kind));
            writeAll(path, damage(original, kind));
            const ULONG rv = callReading(file, blob);
            EXPECT_NE(rv, SAR_OK);
            EXPECT_EQ(rv & 0xFF000000u, 0x0A000000u);
        }
        writeAll(path, original);
        ASSERT_EQ(callReading(file, blob), SAR_OK) << file;
    }
}
