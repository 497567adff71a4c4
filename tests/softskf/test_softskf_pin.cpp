// PIN checks: the retry counter goes down on a wrong PIN, is kept on disk, comes back on
// the right PIN, and locks the PIN for good once it is used up.
#include "softskf_fixture.h"

#include <chrono>
#include <cstdio>

#include <sys/wait.h>
#include <unistd.h>

using namespace softskf_test;

namespace {

ULONG verify(HAPPLICATION application, const char *pin, ULONG *retries, ULONG type = USER_TYPE)
{
    std::string text = pin;
    return SKF_VerifyPIN(application, type, text.data(), retries);
}

ULONG remaining(HAPPLICATION application, ULONG type = USER_TYPE)
{
    ULONG max = 0, left = 0;
    BOOL isDefault = TRUE;
    EXPECT_EQ(SKF_GetPINInfo(application, type, &max, &left, &isDefault), SAR_OK);
    return left;
}

} // namespace

class SoftSkfPin : public SoftSkfTest {};

TEST_F(SoftSkfPin, rightPinLogsIn)
{
    provision("dev");
    Session session = open("dev", false);
    ULONG retries = 99;
    EXPECT_EQ(verify(session.application, kUserPin, &retries), SAR_OK);
    EXPECT_EQ(retries, 6u);
    EXPECT_EQ(verify(session.application, kAdminPin, &retries, ADMIN_TYPE), SAR_OK);
    close(session);
}

TEST_F(SoftSkfPin, pinInformationReportsLimitCounterAndNoDefault)
{
    provision("dev", 4);
    Session session = open("dev", false);
    ULONG max = 0, left = 0;
    BOOL isDefault = TRUE;
    ASSERT_EQ(SKF_GetPINInfo(session.application, USER_TYPE, &max, &left, &isDefault), SAR_OK);
    EXPECT_EQ(max, 4u);
    EXPECT_EQ(left, 4u);
    EXPECT_EQ(isDefault, FALSE);
    EXPECT_EQ(SKF_GetPINInfo(session.application, 7, &max, &left, &isDefault),
              SAR_USER_TYPE_INVALID);
    EXPECT_EQ(SKF_GetPINInfo(session.application, USER_TYPE, nullptr, &left, &isDefault),
              SAR_INVALIDPARAMERR);
    close(session);
}

TEST_F(SoftSkfPin, wrongPinCountsDownAndTellsTheTriesLeft)
{
    provision("dev");
    Session session = open("dev", false);
    ULONG retries = 99;
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(retries, 5u);
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(retries, 4u);
    EXPECT_EQ(remaining(session.application), 4u);
    // The admin PIN has a counter of its own.
    EXPECT_EQ(remaining(session.application, ADMIN_TYPE), 6u);
    close(session);
}

TEST_F(SoftSkfPin, counterIsKeptAcrossReconnect)
{
    provision("dev");
    Session first = open("dev", false);
    ULONG retries = 0;
    EXPECT_EQ(verify(first.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(verify(first.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    close(first);

    Session second = open("dev", false);
    EXPECT_EQ(remaining(second.application), 4u);
    EXPECT_EQ(verify(second.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(retries, 3u);
    close(second);
}

TEST_F(SoftSkfPin, rightPinResetsTheCounter)
{
    provision("dev");
    Session session = open("dev", false);
    ULONG retries = 0;
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(verify(session.application, kUserPin, &retries), SAR_OK);
    EXPECT_EQ(retries, 6u);
    close(session);
    Session again = open("dev", false);
    EXPECT_EQ(remaining(again.application), 6u);
    close(again);
}

TEST_F(SoftSkfPin, usedUpCounterLocksEvenTheRightPin)
{
    provision("dev", 3);
    Session session = open("dev", false);
    ULONG retries = 99;
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    EXPECT_EQ(retries, 0u);
    EXPECT_EQ(verify(session.application, kUserPin, &retries), SAR_PIN_LOCKED);
    EXPECT_EQ(retries, 0u);
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_LOCKED);
    close(session);

    Session again = open("dev", false);
    EXPECT_EQ(verify(again.application, kUserPin, &retries), SAR_PIN_LOCKED);
    EXPECT_EQ(remaining(again.application), 0u);
    // The admin PIN is not locked with it.
    EXPECT_EQ(verify(again.application, kAdminPin, &retries, ADMIN_TYPE), SAR_OK);
    close(again);
}

TEST_F(SoftSkfPin, failedCheckEndsTheLogin)
{
    provision("dev");
    Session session = open("dev", true);
    ULONG retries = 0;
    EXPECT_EQ(verify(session.application, "wrong-pin", &retries), SAR_PIN_INCORRECT);
    const Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    Bytes input = blob;
    HANDLE key = nullptr;
    EXPECT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, input.data(),
                                   static_cast<ULONG>(input.size()), &key),
              SAR_USER_NOT_LOGGED_IN);
    close(session);
}

TEST_F(SoftSkfPin, badTypeLengthOrPointerCountsNothing)
{
    provision("dev");
    Session session = open("dev", false);
    ULONG retries = 99;
    EXPECT_EQ(verify(session.application, kUserPin, &retries, 2), SAR_USER_TYPE_INVALID);
    EXPECT_EQ(verify(session.application, "123", &retries), SAR_PIN_LEN_RANGE);
    const std::string longPin(65, '1');
    EXPECT_EQ(verify(session.application, longPin.c_str(), &retries), SAR_PIN_LEN_RANGE);
    EXPECT_EQ(SKF_VerifyPIN(session.application, USER_TYPE, nullptr, &retries),
              SAR_INVALIDPARAMERR);
    EXPECT_EQ(remaining(session.application), 6u);
    // A null retry-count pointer is allowed: the count just is not reported.
    EXPECT_EQ(verify(session.application, kUserPin, nullptr), SAR_OK);
    close(session);
}

TEST_F(SoftSkfPin, concurrentProcessesLoseNoDecrement)
{
    provision("dev", 20);
    constexpr int kProcesses = 4;
    constexpr int kTriesEach = 3;
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            DEVHANDLE device = nullptr;
            HAPPLICATION application = nullptr;
            char name[] = "dev", app[] = "SOFTAPP", wrong[] = "wrong-pin";
            int failures = 0;
            if (SKF_ConnectDev(name, &device) != SAR_OK
                || SKF_OpenApplication(device, app, &application) != SAR_OK)
                ::_exit(100);
            for (int t = 0; t < kTriesEach; ++t) {
                ULONG retries = 0;
                if (SKF_VerifyPIN(application, USER_TYPE, wrong, &retries) != SAR_PIN_INCORRECT)
                    ++failures;
            }
            ::_exit(failures);
        }
        children.push_back(pid);
    }
    for (const pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
    }
    Session session = open("dev", false);
    EXPECT_EQ(remaining(session.application), 20u - kProcesses * kTriesEach);
    close(session);
}

// The one test on the real default PBKDF2 count: provisioning and a user PIN check work with
// it. The time taken is recorded for the README, not asserted.
TEST_F(SoftSkfPin, defaultIterationCountVerifies)
{
    provision("dev", 6, 0);
    Session session = open("dev", false);
    ULONG retries = 0;
    std::string pin = kUserPin;
    constexpr int kRounds = 5;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRounds; ++i)
        ASSERT_EQ(SKF_VerifyPIN(session.application, USER_TYPE, pin.data(), &retries), SAR_OK);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count()
                      / kRounds;
    RecordProperty("verify_pin_ms", std::to_string(ms));
    std::printf("SKF_VerifyPIN (user, default PBKDF2 count): %.1f ms\n", ms);
    close(session);
}
