// Devices made before the key record: private keys sealed under a key derived from the user PIN
// and PIN records holding the verifiers. They migrate on the first right user PIN (or PIN
// change) and keep their keys; an unblock waits until the admin PIN has met a user login.
#include "test_softskf_robust_support.h"

#include "device_layout.h"
#include "file_io.h"
#include "pin_kdf.h"
#include "pin_store.h"
#include "sealed_key.h"

#include <unistd.h>

using namespace softskf_test;
using namespace softskf_robust;

namespace {

constexpr char kDevice[] = "dev";
constexpr char kNewUserPin[] = "new-user-2468";
constexpr char kWrongPin[] = "wrong-pin-0";
constexpr unsigned kMaxRetries = 3;

// Rewrites a new device the way the earlier layout kept it.
void toEarlierLayout(const std::string &applicationDir, const std::string &containerDir)
{
    softskf::SecretBytes kek;
    ASSERT_TRUE(softskf::openWithUserPin(applicationDir, kUserPin, &kek).ok());
    softskf::PinRecord user, admin;
    ASSERT_TRUE(softskf::makePinRecord(kUserPin, kTestIterations, kMaxRetries, &user).ok());
    ASSERT_TRUE(softskf::makePinRecord(kAdminPin, kTestIterations, kMaxRetries, &admin).ok());
    softskf::SecretBytes legacyKey;
    ASSERT_TRUE(softskf::deriveSealingKey(user, kUserPin, &legacyKey).ok());
    for (const auto usage : {softskf::KeyUsage::Encryption, softskf::KeyUsage::Signing}) {
        const std::string path = containerDir + "/"
                                 + (usage == softskf::KeyUsage::Encryption
                                        ? softskf::layout::kEncryptionKey
                                        : softskf::layout::kSigningKey);
        softskf::SecretBytes pkcs8;
        ASSERT_TRUE(softskf::unsealPrivateKey(kek, CONTAINER_TYPE_SM2, usage, readAll(path), &pkcs8)
                        .ok());
        Bytes sealed;
        ASSERT_TRUE(
            softskf::sealPrivateKey(legacyKey, CONTAINER_TYPE_SM2, usage, pkcs8, &sealed).ok());
        ASSERT_TRUE(softskf::writeFileAtomically(path, sealed).ok());
    }
    ASSERT_TRUE(softskf::writePinRecord(applicationDir, softskf::PinKind::User, user).ok());
    ASSERT_TRUE(softskf::writePinRecord(applicationDir, softskf::PinKind::Admin, admin).ok());
    ASSERT_EQ(::unlink((applicationDir + "/" + softskf::layout::kKeyRecord).c_str()), 0);
}

bool fileExists(const std::string &path)
{
    return ::access(path.c_str(), F_OK) == 0;
}

} // namespace

class SoftSkfLegacyLayout : public SoftSkfTest {
protected:
    RoadInput earlierDevice()
    {
        provision(kDevice, kMaxRetries);
        RoadInput road = roadFor(root(), kDevice);
        toEarlierLayout(applicationPath(kDevice), containerPath(kDevice));
        return road;
    }
    std::string keyRecord() const { return applicationPath(kDevice) + "/key.dat"; }
};

TEST_F(SoftSkfLegacyLayout, firstRightUserPinMigratesTheDeviceAndKeepsItsKeys)
{
    const RoadInput road = earlierDevice();
    ASSERT_FALSE(fileExists(keyRecord()));
    EXPECT_EQ(decryptWith(road, kWrongPin), SAR_PIN_INCORRECT);
    EXPECT_FALSE(fileExists(keyRecord()));
    EXPECT_EQ(decryptWith(road, kUserPin), SAR_OK);
    EXPECT_TRUE(fileExists(keyRecord()));
    EXPECT_EQ(remainingTries(kDevice), kMaxRetries);
    EXPECT_EQ(decryptWith(road, kUserPin), SAR_OK);
    EXPECT_EQ(decryptWith(road, kWrongPin), SAR_PIN_INCORRECT);
}

TEST_F(SoftSkfLegacyLayout, pinChangeMigratesStraightToTheNewPin)
{
    const RoadInput road = earlierDevice();
    ASSERT_EQ(changeOnce(kDevice, USER_TYPE, kUserPin, kNewUserPin), SAR_OK);
    EXPECT_EQ(decryptWith(road, kNewUserPin), SAR_OK);
    EXPECT_EQ(decryptWith(road, kUserPin), SAR_PIN_INCORRECT);
}

TEST_F(SoftSkfLegacyLayout, unblockIsRefusedWhileTheKeysHaveNoAdminWrap)
{
    const RoadInput road = earlierDevice();
    ASSERT_EQ(decryptWith(road, kUserPin), SAR_OK);
    for (unsigned i = 0; i < kMaxRetries; ++i)
        ASSERT_EQ(verifyOnce(kDevice, kWrongPin), SAR_PIN_INCORRECT);
    EXPECT_EQ(unblockOnce(kDevice, kAdminPin, kNewUserPin), SAR_NOTSUPPORTYETERR);
    // Nothing changed: the user PIN is still locked, the admin PIN was right.
    EXPECT_EQ(remainingTries(kDevice), 0u);
    EXPECT_EQ(remainingTries(kDevice, nullptr, ADMIN_TYPE), kMaxRetries);
    EXPECT_EQ(unblockOnce(kDevice, kWrongPin, kNewUserPin), SAR_PIN_INCORRECT);
}

TEST_F(SoftSkfLegacyLayout, adminPinBesideAUserLoginMakesUnblockKeepTheKeys)
{
    const RoadInput road = earlierDevice();
    Session session = open(kDevice, true);
    char adminPin[] = "admin-8765";
    ULONG retries = 0;
    ASSERT_EQ(SKF_VerifyPIN(session.application, ADMIN_TYPE, adminPin, &retries), SAR_OK);
    close(session);
    for (unsigned i = 0; i < kMaxRetries; ++i)
        ASSERT_EQ(verifyOnce(kDevice, kWrongPin), SAR_PIN_INCORRECT);
    ASSERT_EQ(unblockOnce(kDevice, kAdminPin, kNewUserPin), SAR_OK);
    EXPECT_EQ(decryptWith(road, kNewUserPin), SAR_OK);
}
