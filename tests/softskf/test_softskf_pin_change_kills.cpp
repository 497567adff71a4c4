// A PIN change (user or admin) or an unblock killed at any step never loses the private keys: a child stops itself
// with SIGKILL on reaching a chosen step (test_seams.h) of the key record's and the PIN
// records' writes, and afterwards the old or the new user PIN opens an envelope made before.
// Each kill gets a fresh device, so every step is tried on the same starting state.
#include "test_softskf_robust_support.h"

#include "test_seams_control.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include <signal.h>

using namespace softskf_test;
using namespace softskf_robust;

namespace {

constexpr char kDevice[] = "dev";
constexpr char kNewUserPin[] = "new-user-2468";
constexpr char kWrongPin[] = "wrong-pin-0";
constexpr unsigned kMaxRetries = 2;

// The steps `operation` passes, in order, as a child running it reports them.
std::vector<std::string> stepsOf(const std::function<ULONG()> &operation)
{
    const ChildOutcome outcome = runInChild([&](int reportFd) {
        softskf::seams::setHook([reportFd](const char *step) {
            report(reportFd, std::string(step) + "\n");
            return 0;
        });
        return operation() == SAR_OK ? 0 : 1;
    });
    EXPECT_TRUE(outcome.exited && outcome.code == 0) << "the recording child failed";
    std::vector<std::string> steps;
    std::istringstream lines(outcome.report);
    for (std::string line; std::getline(lines, line);)
        steps.push_back(line);
    return steps;
}

// `operation` in a child that kills itself when it reaches its step number `stop` (from 0).
ChildOutcome killedAtStep(const std::function<ULONG()> &operation, std::size_t stop)
{
    return runInChild([&](int) {
        std::size_t reached = 0;
        softskf::seams::setHook([&reached, stop](const char *) {
            if (reached++ == stop)
                ::raise(SIGKILL);
            return 0;
        });
        operation();
        return 0;
    });
}

bool contains(const std::vector<std::string> &steps, const char *step)
{
    return std::find(steps.begin(), steps.end(), step) != steps.end();
}

} // namespace

class SoftSkfPinChangeKills : public SoftSkfTest {
protected:
    // A new device and an envelope for it.
    RoadInput freshDevice()
    {
        std::string error;
        softskf::removeDevice(root(), kDevice, &error);
        provision(kDevice, kMaxRetries);
        return roadFor(root(), kDevice);
    }

    void lockUserPin()
    {
        for (unsigned i = 0; i < kMaxRetries; ++i)
            ASSERT_EQ(verifyOnce(kDevice, kWrongPin), SAR_PIN_INCORRECT);
    }
};

TEST_F(SoftSkfPinChangeKills, changeKilledAtEachStepLeavesTheOldOrTheNewPinOpeningTheKeys)
{
    const auto change = [] { return changeOnce(kDevice, USER_TYPE, kUserPin, kNewUserPin); };
    freshDevice();
    const std::vector<std::string> steps = stepsOf(change);
    ASSERT_TRUE(contains(steps, softskf::seams::kKeysWritten)) << "the change wrote no key record";
    ASSERT_TRUE(contains(steps, softskf::seams::kRename));

    int keptOld = 0, tookNew = 0;
    for (std::size_t stop = 0; stop < steps.size(); ++stop) {
        SCOPED_TRACE("killed before step " + std::to_string(stop) + ", " + steps[stop]);
        const RoadInput road = freshDevice();
        ASSERT_EQ(killedAtStep(change, stop).signal, SIGKILL) << "the change ended before the step";
        const ULONG withOld = decryptWith(road, kUserPin);
        if (withOld == SAR_OK) {
            ++keptOld;
            continue;
        }
        ASSERT_EQ(withOld, SAR_PIN_INCORRECT);
        ASSERT_EQ(decryptWith(road, kNewUserPin), SAR_OK) << "neither PIN opens the keys";
        ++tookNew;
    }
    // Kills before the key record's rename keep the old PIN, kills after it find the new one.
    EXPECT_GT(keptOld, 0);
    EXPECT_GT(tookNew, 0);
}

TEST_F(SoftSkfPinChangeKills, unblockKilledAtEachStepLeavesTheKeysToTheAdminOrTheNewPin)
{
    const auto unblock = [] { return unblockOnce(kDevice, kAdminPin, kNewUserPin); };
    freshDevice();
    lockUserPin();
    const std::vector<std::string> steps = stepsOf(unblock);
    ASSERT_TRUE(contains(steps, softskf::seams::kKeysWritten)) << "the unblock wrote no key record";

    int keptOld = 0, tookNew = 0;
    for (std::size_t stop = 0; stop < steps.size(); ++stop) {
        SCOPED_TRACE("killed before step " + std::to_string(stop) + ", " + steps[stop]);
        const RoadInput road = freshDevice();
        lockUserPin();
        ASSERT_EQ(killedAtStep(unblock, stop).signal, SIGKILL)
            << "the unblock ended before the step";
        // The admin PIN was right: no kill takes a try from it.
        ASSERT_EQ(remainingTries(kDevice, nullptr, ADMIN_TYPE), kMaxRetries);
        const ULONG withNew = decryptWith(road, kNewUserPin);
        if (withNew == SAR_OK) {
            ++tookNew;
            continue;
        }
        // Killed before the new wrap was in place, or before the user counter was written:
        // the admin PIN unblocks again and the keys are there.
        ASSERT_TRUE(withNew == SAR_PIN_LOCKED || withNew == SAR_PIN_INCORRECT)
            << hexCode(withNew);
        ASSERT_EQ(unblockOnce(kDevice, kAdminPin, kNewUserPin), SAR_OK);
        ASSERT_EQ(decryptWith(road, kNewUserPin), SAR_OK) << "the keys are lost";
        ++keptOld;
    }
    EXPECT_GT(keptOld, 0);
    EXPECT_GT(tookNew, 0);
}

TEST_F(SoftSkfPinChangeKills, adminPinChangeKilledAtEachStepLeavesTheOldOrTheNewAdminPinUnblocking)
{
    constexpr char kNewAdminPin[] = "new-admin-1357";
    const auto change = [&] { return changeOnce(kDevice, ADMIN_TYPE, kAdminPin, kNewAdminPin); };
    freshDevice();
    const std::vector<std::string> steps = stepsOf(change);
    ASSERT_TRUE(contains(steps, softskf::seams::kKeysWritten));

    int keptOld = 0, tookNew = 0;
    for (std::size_t stop = 0; stop < steps.size(); ++stop) {
        SCOPED_TRACE("killed before step " + std::to_string(stop) + ", " + steps[stop]);
        const RoadInput road = freshDevice();
        lockUserPin();
        ASSERT_EQ(killedAtStep(change, stop).signal, SIGKILL);
        const ULONG withOld = unblockOnce(kDevice, kAdminPin, kNewUserPin);
        if (withOld == SAR_OK) {
            ++keptOld;
        } else {
            ASSERT_EQ(withOld, SAR_PIN_INCORRECT);
            ASSERT_EQ(unblockOnce(kDevice, kNewAdminPin, kNewUserPin), SAR_OK)
                << "neither admin PIN unblocks";
            ++tookNew;
        }
        ASSERT_EQ(decryptWith(road, kNewUserPin), SAR_OK) << "the keys are lost";
    }
    EXPECT_GT(keptOld, 0);
    EXPECT_GT(tookNew, 0);
}
