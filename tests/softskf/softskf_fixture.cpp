#include "softskf_fixture.h"

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace softskf_test {

void SoftSkfTest::SetUp()
{
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/softskf-test-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    root_ = pattern + "/root";
    if (const char *previous = std::getenv("SOFTSKF_ROOT")) {
        hadRoot_ = true;
        previousRoot_ = previous;
    }
    ::setenv("SOFTSKF_ROOT", root_.c_str(), 1);
}

void SoftSkfTest::TearDown()
{
    if (hadRoot_)
        ::setenv("SOFTSKF_ROOT", previousRoot_.c_str(), 1);
    else
        ::unsetenv("SOFTSKF_ROOT");
    std::error_code error;
    std::filesystem::permissions(root_, std::filesystem::perms::owner_all, error);
    std::filesystem::remove_all(std::filesystem::path(root_).parent_path(), error);
}

void SoftSkfTest::provision(const std::string &device, unsigned maxRetries, unsigned iterations)
{
    softskf::DeviceOptions options;
    options.name = device;
    options.userPin = kUserPin;
    options.adminPin = kAdminPin;
    options.maxRetries = maxRetries;
    options.pbkdf2Iterations = iterations;
    std::string error;
    ASSERT_TRUE(softskf::createDevice(root_, options, &error)) << error;
}

SoftSkfTest::Session SoftSkfTest::open(const std::string &device, bool login,
                                       const std::string &container)
{
    Session session;
    std::string name = device;
    EXPECT_EQ(SKF_ConnectDev(name.data(), &session.device), SAR_OK);
    char application[] = "SOFTAPP";
    EXPECT_EQ(SKF_OpenApplication(session.device, application, &session.application), SAR_OK);
    if (login) {
        char pin[] = "12345678";
        ULONG retries = 0;
        EXPECT_EQ(SKF_VerifyPIN(session.application, USER_TYPE, pin, &retries), SAR_OK);
    }
    std::string containerName = container;
    EXPECT_EQ(SKF_OpenContainer(session.application, containerName.data(), &session.container),
              SAR_OK);
    return session;
}

void SoftSkfTest::close(Session &session)
{
    EXPECT_EQ(SKF_DisConnectDev(session.device), SAR_OK);
    session = Session{};
}

Bytes readAll(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeAll(const std::string &path, const Bytes &bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes randomBytes(std::size_t length)
{
    Bytes bytes(length);
    if (length != 0) {
        EXPECT_EQ(RAND_bytes(bytes.data(), static_cast<int>(length)), 1);
    }
    return bytes;
}

Bytes encryptionCertificate(const std::string &root, const std::string &device,
                            const std::string &container)
{
    Bytes der;
    std::string error;
    EXPECT_TRUE(softskf::getEncryptionCertificate(root, device, container, &der, &error)) << error;
    return der;
}

namespace {

// Copies a DER INTEGER's magnitude right-aligned into a 64-byte field.
void placeCoordinate(const ASN1_TYPE *item, unsigned char *field)
{
    ASSERT_EQ(ASN1_TYPE_get(item), V_ASN1_INTEGER);
    const ASN1_INTEGER *integer = item->value.integer;
    const int length = ASN1_STRING_length(integer);
    ASSERT_LE(length, 32);
    std::memcpy(field + 64 - length, ASN1_STRING_get0_data(integer), static_cast<std::size_t>(length));
}

} // namespace

Bytes wrapForCertificate(const Bytes &certificateDer, const Bytes &key)
{
    const unsigned char *cursor = certificateDer.data();
    std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &cursor, static_cast<long>(certificateDer.size())), X509_free);
    EXPECT_TRUE(certificate);
    if (!certificate)
        return {};
    EVP_PKEY *publicKey = X509_get0_pubkey(certificate.get());
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(
        EVP_PKEY_CTX_new_from_pkey(nullptr, publicKey, nullptr), EVP_PKEY_CTX_free);
    std::size_t length = 0;
    EXPECT_EQ(EVP_PKEY_encrypt_init(ctx.get()), 1);
    EXPECT_EQ(EVP_PKEY_encrypt(ctx.get(), nullptr, &length, key.data(), key.size()), 1);
    Bytes der(length);
    EXPECT_EQ(EVP_PKEY_encrypt(ctx.get(), der.data(), &length, key.data(), key.size()), 1);
    der.resize(length);

    // DER SEQUENCE { INTEGER x, INTEGER y, OCTET STRING hash, OCTET STRING cipher }.
    cursor = der.data();
    std::unique_ptr<ASN1_SEQUENCE_ANY, void (*)(ASN1_SEQUENCE_ANY *)> items(
        d2i_ASN1_SEQUENCE_ANY(nullptr, &cursor, static_cast<long>(der.size())),
        [](ASN1_SEQUENCE_ANY *s) { sk_ASN1_TYPE_pop_free(s, ASN1_TYPE_free); });
    EXPECT_TRUE(items);
    if (!items || sk_ASN1_TYPE_num(items.get()) != 4)
        return {};
    const ASN1_OCTET_STRING *hash = sk_ASN1_TYPE_value(items.get(), 2)->value.octet_string;
    const ASN1_OCTET_STRING *cipher = sk_ASN1_TYPE_value(items.get(), 3)->value.octet_string;
    EXPECT_EQ(ASN1_STRING_length(hash), 32);
    const std::size_t cipherLength = static_cast<std::size_t>(ASN1_STRING_length(cipher));
    Bytes blob(164 + cipherLength, 0);
    placeCoordinate(sk_ASN1_TYPE_value(items.get(), 0), blob.data());
    placeCoordinate(sk_ASN1_TYPE_value(items.get(), 1), blob.data() + 64);
    std::memcpy(blob.data() + 128, ASN1_STRING_get0_data(hash), 32);
    blob[160] = static_cast<unsigned char>(cipherLength);
    blob[161] = static_cast<unsigned char>(cipherLength >> 8);
    blob[162] = static_cast<unsigned char>(cipherLength >> 16);
    blob[163] = static_cast<unsigned char>(cipherLength >> 24);
    std::memcpy(blob.data() + 164, ASN1_STRING_get0_data(cipher), cipherLength);
    return blob;
}

Bytes sm4EcbEncrypt(const Bytes &key, const Bytes &plain, bool pkcs7)
{
    std::unique_ptr<EVP_CIPHER, decltype(&EVP_CIPHER_free)> cipher(
        EVP_CIPHER_fetch(nullptr, "SM4-ECB", nullptr), EVP_CIPHER_free);
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                        EVP_CIPHER_CTX_free);
    EXPECT_EQ(EVP_EncryptInit_ex2(ctx.get(), cipher.get(), key.data(), nullptr, nullptr), 1);
    EVP_CIPHER_CTX_set_padding(ctx.get(), pkcs7 ? 1 : 0);
    Bytes out(plain.size() + 16);
    int length = 0, tail = 0;
    EXPECT_EQ(EVP_EncryptUpdate(ctx.get(), out.data(), &length, plain.data(), static_cast<int>(plain.size())), 1);
    EXPECT_EQ(EVP_EncryptFinal_ex(ctx.get(), out.data() + length, &tail), 1);
    out.resize(static_cast<std::size_t>(length + tail));
    return out;
}

BLOCKCIPHERPARAM paddingParam(ULONG paddingType)
{
    BLOCKCIPHERPARAM param;
    std::memset(&param, 0, sizeof param);
    param.PaddingType = paddingType;
    return param;
}

ULONG decryptAll(HANDLE key, const Bytes &cipher, Bytes *plain)
{
    Bytes input = cipher;
    ULONG length = 0;
    ULONG rv = SKF_Decrypt(key, input.data(), static_cast<ULONG>(input.size()), nullptr, &length);
    if (rv != SAR_OK)
        return rv;
    plain->assign(length, 0);
    rv = SKF_Decrypt(key, input.data(), static_cast<ULONG>(input.size()), plain->data(), &length);
    if (rv == SAR_OK)
        plain->resize(length);
    return rv;
}

std::vector<std::string> splitNameList(const std::vector<char> &list)
{
    std::vector<std::string> names;
    std::size_t i = 0;
    while (i < list.size() && list[i] != '\0') {
        const std::string name(&list[i]);
        names.push_back(name);
        i += name.size() + 1;
    }
    return names;
}

} // namespace softskf_test
