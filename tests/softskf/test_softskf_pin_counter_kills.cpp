// The PIN retry counter survives a process killed in the middle of a PIN check: killed at any
// step of the check, the child leaves the old counter or the new one, readable, never a reset
// or a torn file. A child stops itself with SIGKILL on reaching a chosen step, so every step is
// hit on every run whatever the machine's load, on both sides of the rename that replaces the
// record.
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
constexpr char kWrongPin[] = "wrong-pin-0";

// The steps one user PIN check passes, in order, as a child running it reports them.
std::vector<std::string> stepsOfCheck(const std::string &device, const char *pin)
{
    const ChildOutcome outcome = runInChild([&](int reportFd) {
        softskf::seams::setHook([reportFd](const char *step) {
            report(reportFd, std::string(step) + "\n");
            return 0;
        });
        verifyOnce(device, pin);
        return 0;
    });
    EXPECT_TRUE(outcome.exited && outcome.code == 0) << "the recording child failed";
    std::vector<std::string> steps;
    std::istringstream lines(outcome.report);
    for (std::string line; std::getline(lines, line);)
        steps.push_back(line);
    return steps;
}

// One user PIN check in a child that kills itself with SIGKILL when it reaches its step number
// `stop` (from 0), before the step runs.
ChildOutcome checkKilledAtStep(const std::string &device, const char *pin, std::size_t stop)
{
    return runInChild([&](int) {
        std::size_t reached = 0;
        softskf::seams::setHook([&reached, stop](const char *) {
            if (reached++ == stop)
                ::raise(SIGKILL);
            return 0;
        });
        verifyOnce(device, pin);
        return 0;
    });
}

bool contains(const std::vector<std::string> &steps, const char *step)
{
    return std::find(steps.begin(), steps.end(), step) != steps.end();
}

} // namespace

class SoftSkfPinCounterKills : public SoftSkfTest {};

TEST_F(SoftSkfPinCounterKills, wrongPinCheckKilledAtEachStepLeavesTheOldCounterOrOneLess)
{
    constexpr unsigned kMaxRetries = 32;
    provision(kDevice, kMaxRetries);
    const std::vector<std::string> steps = stepsOfCheck(kDevice, kWrongPin);
    ASSERT_TRUE(contains(steps, softskf::seams::kRename)) << "the check wrote no counter";

    int keptOld = 0, tookOne = 0;
    for (std::size_t stop = 0; stop < steps.size(); ++stop) {
        SCOPED_TRACE("killed before step " + std::to_string(stop) + ", " + steps[stop]);
        const ULONG previous = remainingTries(kDevice);
        ASSERT_GT(previous, 0u);
        const ChildOutcome killed = checkKilledAtStep(kDevice, kWrongPin, stop);
        ASSERT_EQ(killed.signal, SIGKILL) << "the check ended before the step";
        ULONG code = 0;
        const ULONG now = remainingTries(kDevice, &code);
        ASSERT_EQ(code, SAR_OK) << "the counter is unreadable: " << hexCode(code);
        ASSERT_TRUE(now == previous || now + 1 == previous)
            << "the counter went from " << previous << " to " << now;
        ++(now == previous ? keptOld : tookOne);
    }
    // Kills before the rename keep the old record, kills after it find the new one in place.
    EXPECT_GT(keptOld, 0);
    EXPECT_GT(tookOne, 0);
    EXPECT_EQ(verifyOnce(kDevice, kUserPin), SAR_OK);
    EXPECT_EQ(remainingTries(kDevice), kMaxRetries);
}

TEST_F(SoftSkfPinCounterKills, rightPinCheckKilledAtEachStepLeavesTheOldCounterOrAFullOne)
{
    constexpr unsigned kMaxRetries = 8;
    provision(kDevice, kMaxRetries);
    // A right PIN writes the counter only when a wrong one took a try before it.
    ASSERT_EQ(verifyOnce(kDevice, kWrongPin), SAR_PIN_INCORRECT);
    const std::vector<std::string> steps = stepsOfCheck(kDevice, kUserPin);
    ASSERT_TRUE(contains(steps, softskf::seams::kRename)) << "the check wrote no counter";

    int keptOld = 0, reset = 0;
    for (std::size_t stop = 0; stop < steps.size(); ++stop) {
        SCOPED_TRACE("killed before step " + std::to_string(stop) + ", " + steps[stop]);
        ASSERT_EQ(verifyOnce(kDevice, kWrongPin), SAR_PIN_INCORRECT);
        const ULONG previous = remainingTries(kDevice);
        ASSERT_EQ(previous, kMaxRetries - 1);
        const ChildOutcome killed = checkKilledAtStep(kDevice, kUserPin, stop);
        ASSERT_EQ(killed.signal, SIGKILL) << "the check ended before the step";
        ULONG code = 0;
        const ULONG now = remainingTries(kDevice, &code);
        ASSERT_EQ(code, SAR_OK) << "the counter is unreadable: " << hexCode(code);
        ASSERT_TRUE(now == previous || now == kMaxRetries)
            << "the counter went from " << previous << " to " << now;
        ++(now == previous ? keptOld : reset);
        // Whatever the kill left, the right PIN brings the counter back.
        ASSERT_EQ(verifyOnce(kDevice, kUserPin), SAR_OK);
    }
    EXPECT_GT(keptOld, 0);
    EXPECT_GT(reset, 0);
}
