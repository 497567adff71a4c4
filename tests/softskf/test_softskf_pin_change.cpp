// Changing and unblocking PINs through the C interface: the private keys follow the user PIN
// through a change and survive an unblock with the admin PIN, and the admin PIN has a retry
// counter and lock of its own.
#include "test_softskf_robust_support.h"

#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

using namespace softskf_test;
using namespace softskf_robust;

namespace {

constexpr char kDevice[] = "dev";
constexpr char kNewUserPin[] = "new-user-2468";
constexpr char kNewAdminPin[] = "new-admin-1357";
constexpr char kWrongPin[] = "wrong-pin-0";

// Uses up the user PIN's tries with a wrong PIN.
void lockUserPin(const std::string &device, unsigned tries)
{
    for (unsigned i = 0; i < tries; ++i)
        ASSERT_EQ(verifyOnce(device, kWrongPin), SAR_PIN_INCORRECT);
    ASSERT_EQ(verifyOnce(device, kUserPin), SAR_PIN_LOCKED);
}

} // namespace

class SoftSkfPinChange : public SoftSkfTest {};

TEST_F(SoftSkfPinChange, changedUserPinOpensTheKeysAndTheOldOneNoLonger)
{
    provision(kDevice);
    const RoadInput road = roadFor(root(), kDevice);
    ULONG retries = 0;
    ASSERT_EQ(changeOnce(kDevice, USER_TYPE, kUserPin, kNewUserPin, &retries), SAR_OK);
    EXPECT_EQ(retries, 6u);
    EXPECT_EQ(decryptWith(road, kNewUserPin), SAR_OK);
    EXPECT_EQ(decryptWith(road, kUserPin), SAR_PIN_INCORRECT);
    EXPECT_EQ(remainingTries(kDevice), 5u);
    EXPECT_EQ(decryptWith(road, kNewUserPin), SAR_OK);
    EXPECT_EQ(remainingTries(kDevice), 6u);
}

TEST_F(SoftSkfPinChange, changeWithAWrongOldPinCountsATryAndChangesNothing)
{
    provision(kDevice);
    const RoadInput road = roadFor(root(), kDevice);
    ULONG retries = 99;
    EXPECT_EQ(changeOnce(kDevice, USER_TYPE, kWrongPin, kNewUserPin, &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(retries, 5u);
    EXPECT_EQ(remainingTries(kDevice), 5u);
    EXPECT_EQ(decryptWith(road, kUserPin), SAR_OK);
}

TEST_F(SoftSkfPinChange, changeRefusesAPinOutOfLengthWithoutCounting)
{
    provision(kDevice);
    EXPECT_EQ(changeOnce(kDevice, USER_TYPE, kUserPin, "123"), SAR_PIN_LEN_RANGE);
    EXPECT_EQ(changeOnce(kDevice, USER_TYPE, "123", kNewUserPin), SAR_PIN_LEN_RANGE);
    EXPECT_EQ(changeOnce(kDevice, USER_TYPE, kUserPin, std::string(65, 'x').c_str()),
              SAR_PIN_LEN_RANGE);
    EXPECT_EQ(changeOnce(kDevice, 7, kUserPin, kNewUserPin), SAR_USER_TYPE_INVALID);
    EXPECT_EQ(remainingTries(kDevice), 6u);
    EXPECT_EQ(verifyOnce(kDevice, kUserPin), SAR_OK);
}

TEST_F(SoftSkfPinChange, lockedUserPinUnblockedWithTheAdminPinStillOpensEarlierEnvelopes)
{
    provision(kDevice, 3);
    const RoadInput road = roadFor(root(), kDevice);
    lockUserPin(kDevice, 3);
    EXPECT_EQ(decryptWith(road, kUserPin), SAR_PIN_LOCKED);
    ULONG retries = 0;
    ASSERT_EQ(unblockOnce(kDevice, kAdminPin, kNewUserPin, &retries), SAR_OK);
    EXPECT_EQ(retries, 3u);
    EXPECT_EQ(remainingTries(kDevice), 3u);
    EXPECT_EQ(decryptWith(road, kNewUserPin), SAR_OK);
    EXPECT_EQ(decryptWith(road, kUserPin), SAR_PIN_INCORRECT);
}

TEST_F(SoftSkfPinChange, wrongAdminPinCountsDownThenLocksEvenTheRightOne)
{
    provision(kDevice, 3);
    const RoadInput road = roadFor(root(), kDevice);
    lockUserPin(kDevice, 3);
    ULONG retries = 99;
    for (ULONG left : {2u, 1u, 0u}) {
        EXPECT_EQ(unblockOnce(kDevice, kWrongPin, kNewUserPin, &retries), SAR_PIN_INCORRECT);
        EXPECT_EQ(retries, left);
        EXPECT_EQ(remainingTries(kDevice, nullptr, ADMIN_TYPE), left);
    }
    retries = 99;
    EXPECT_EQ(unblockOnce(kDevice, kAdminPin, kNewUserPin, &retries), SAR_PIN_LOCKED);
    EXPECT_EQ(retries, 0u);
    EXPECT_EQ(changeOnce(kDevice, ADMIN_TYPE, kAdminPin, kNewAdminPin), SAR_PIN_LOCKED);
    // The user PIN stays locked and unchanged.
    EXPECT_EQ(decryptWith(road, kNewUserPin), SAR_PIN_LOCKED);
    EXPECT_EQ(remainingTries(kDevice), 0u);
}

TEST_F(SoftSkfPinChange, wrongAdminPinLeavesTheUserPinAlone)
{
    provision(kDevice);
    const RoadInput road = roadFor(root(), kDevice);
    EXPECT_EQ(unblockOnce(kDevice, kWrongPin, kNewUserPin), SAR_PIN_INCORRECT);
    EXPECT_EQ(remainingTries(kDevice, nullptr, ADMIN_TYPE), 5u);
    EXPECT_EQ(decryptWith(road, kUserPin), SAR_OK);
    EXPECT_EQ(decryptWith(road, kNewUserPin), SAR_PIN_INCORRECT);
}

TEST_F(SoftSkfPinChange, changedAdminPinUnblocksAndTheOldOneNoLonger)
{
    provision(kDevice);
    const RoadInput road = roadFor(root(), kDevice);
    ASSERT_EQ(changeOnce(kDevice, ADMIN_TYPE, kAdminPin, kNewAdminPin), SAR_OK);
    EXPECT_EQ(unblockOnce(kDevice, kAdminPin, kNewUserPin), SAR_PIN_INCORRECT);
    ASSERT_EQ(unblockOnce(kDevice, kNewAdminPin, kNewUserPin), SAR_OK);
    EXPECT_EQ(remainingTries(kDevice, nullptr, ADMIN_TYPE), 6u);
    EXPECT_EQ(decryptWith(road, kNewUserPin), SAR_OK);
}

TEST_F(SoftSkfPinChange, pinInformationCoversTheAdminPin)
{
    provision(kDevice, 5);
    EXPECT_EQ(unblockOnce(kDevice, kWrongPin, kNewUserPin), SAR_PIN_INCORRECT);
    Session session = open(kDevice, false);
    ULONG max = 0, left = 0;
    BOOL isDefault = TRUE;
    ASSERT_EQ(SKF_GetPINInfo(session.application, ADMIN_TYPE, &max, &left, &isDefault), SAR_OK);
    EXPECT_EQ(max, 5u);
    EXPECT_EQ(left, 4u);
    EXPECT_EQ(isDefault, FALSE);
    close(session);
}

TEST_F(SoftSkfPinChange, keyRecordIsOwnerOnlyAndHoldsNoPinInClear)
{
    provision(kDevice);
    ASSERT_EQ(changeOnce(kDevice, USER_TYPE, kUserPin, kNewUserPin), SAR_OK);
    const std::string path = applicationPath(kDevice) + "/key.dat";
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    const Bytes bytes = readAll(path);
    for (const std::string pin : {kUserPin, kNewUserPin, kAdminPin}) {
        const auto found = std::search(bytes.begin(), bytes.end(), pin.begin(), pin.end());
        EXPECT_EQ(found, bytes.end()) << pin;
    }
}

TEST_F(SoftSkfPinChange, nullArgumentsAreRefused)
{
    provision(kDevice);
    Session session = open(kDevice, false);
    char pin[] = "12345678";
    ULONG retries = 0;
    EXPECT_EQ(SKF_ChangePIN(session.application, USER_TYPE, nullptr, pin, &retries),
              SAR_INVALIDPARAMERR);
    EXPECT_EQ(SKF_UnblockPIN(session.application, pin, nullptr, &retries), SAR_INVALIDPARAMERR);
    EXPECT_EQ(SKF_ChangePIN(nullptr, USER_TYPE, pin, pin, &retries), SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_UnblockPIN(nullptr, pin, pin, &retries), SAR_INVALIDHANDLEERR);
    close(session);
}

TEST_F(SoftSkfPinChange, missingKeyRecordIsAFileErrorThatCountsNothing)
{
    provision(kDevice);
    ASSERT_EQ(::unlink((applicationPath(kDevice) + "/key.dat").c_str()), 0);
    EXPECT_EQ(verifyOnce(kDevice, kUserPin), SAR_FILEERR);
    EXPECT_EQ(changeOnce(kDevice, USER_TYPE, kUserPin, kNewUserPin), SAR_FILEERR);
    EXPECT_EQ(unblockOnce(kDevice, kAdminPin, kNewUserPin), SAR_FILEERR);
    EXPECT_EQ(remainingTries(kDevice), 6u);
    EXPECT_EQ(remainingTries(kDevice, nullptr, ADMIN_TYPE), 6u);
}
