#pragma once

#include "skf.h"
#include "softskf/provision.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace softskf_test {

using Bytes = std::vector<unsigned char>;

inline constexpr char kUserPin[] = "12345678";
inline constexpr char kAdminPin[] = "admin-8765";
inline constexpr char kApplication[] = "SOFTAPP";
inline constexpr char kContainer[] = "SM2Container";
// Low enough that provisioning and PIN checks cost nothing in tests; one test checks the
// real default.
inline constexpr unsigned kTestIterations = 16;

// A fresh root folder for one test, removed afterwards, with SOFTSKF_ROOT pointing at it for
// the test's duration (the previous value is restored).
class SoftSkfTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    const std::string &root() const { return root_; }
    std::string devicePath(const std::string &device) const { return root_ + "/" + device; }
    std::string applicationPath(const std::string &device) const
    {
        return devicePath(device) + "/" + kApplication;
    }
    std::string containerPath(const std::string &device, const std::string &container = kContainer) const
    {
        return applicationPath(device) + "/" + container;
    }

    // Creates a device with the test PINs; fails the test when that does not work.
    void provision(const std::string &device, unsigned maxRetries = 6,
                   unsigned iterations = kTestIterations);

    // Connect, open the application and (optionally) log in as user; fails the test otherwise.
    struct Session {
        DEVHANDLE device = nullptr;
        HAPPLICATION application = nullptr;
        HCONTAINER container = nullptr;
    };
    Session open(const std::string &device, bool login = true,
                 const std::string &container = kContainer);
    void close(Session &session);

private:
    std::string root_;
    bool hadRoot_ = false;
    std::string previousRoot_;
};

Bytes readAll(const std::string &path);
void writeAll(const std::string &path, const Bytes &bytes);
Bytes randomBytes(std::size_t length);

// The provisioned certificate of a container, and the SM2 public key in it.
Bytes encryptionCertificate(const std::string &root, const std::string &device,
                            const std::string &container = kContainer);

// What a sender does: SM2-encrypts `key` to the certificate's public key with OpenSSL and
// lays the result out as the wrapped ECCCIPHERBLOB (164 + CipherLen bytes, coordinates
// right-aligned in 64-byte fields).
Bytes wrapForCertificate(const Bytes &certificateDer, const Bytes &key);

// SM4-ECB with PKCS#7 padding (or none), done by OpenSSL.
Bytes sm4EcbEncrypt(const Bytes &key, const Bytes &plain, bool pkcs7 = true);

BLOCKCIPHERPARAM paddingParam(ULONG paddingType);

// SKF_Decrypt the way callers do it: size query, then the real call.
ULONG decryptAll(HANDLE key, const Bytes &cipher, Bytes *plain);

// Multi-string to names.
std::vector<std::string> splitNameList(const std::vector<char> &list);

} // namespace softskf_test
