// The PIN retry counter survives anything a process can suffer: a child killed with SIGKILL at
// a random moment of a PIN check leaves the old or the new counter, readable, never a reset or
// a torn file; processes checking PINs on one device at once lose no decrement.
#include "test_softskf_robust_support.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <random>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace softskf_test;
using namespace softskf_robust;
namespace fs = std::filesystem;

namespace {

constexpr char kDevice[] = "dev";
constexpr char kWrongPin[] = "wrong-pin-0";

// The counter as a fresh connection reads it from disk; fails the test when it cannot be read.
ULONG remainingTries(const std::string &device, ULONG *code = nullptr)
{
    std::string name = device;
    char application[] = "SOFTAPP";
    DEVHANDLE handle = nullptr;
    HAPPLICATION app = nullptr;
    ULONG max = 0, left = 0;
    BOOL isDefault = FALSE;
    ULONG rv = SKF_ConnectDev(name.data(), &handle);
    if (rv == SAR_OK) {
        rv = SKF_OpenApplication(handle, application, &app);
        if (rv == SAR_OK)
            rv = SKF_GetPINInfo(app, USER_TYPE, &max, &left, &isDefault);
        SKF_DisConnectDev(handle);
    }
    if (code)
        *code = rv;
    else
        EXPECT_EQ(rv, SAR_OK) << "the counter cannot be read: " << hexCode(rv);
    return left;
}

// One PIN check in this process, on a connection of its own; answers the check's code.
ULONG verifyOnce(const std::string &device, const char *pin)
{
    std::string name = device, text = pin;
    char application[] = "SOFTAPP";
    DEVHANDLE handle = nullptr;
    HAPPLICATION app = nullptr;
    ULONG rv = SKF_ConnectDev(name.data(), &handle);
    if (rv != SAR_OK)
        return rv;
    rv = SKF_OpenApplication(handle, application, &app);
    ULONG retries = 0;
    if (rv == SAR_OK)
        rv = SKF_VerifyPIN(app, USER_TYPE, text.data(), &retries);
    SKF_DisConnectDev(handle);
    return rv;
}

// Forks a child that checks `pin` once, kills it after `delay`, and answers whether the child
// was killed before it finished.
bool killDuringCheck(const std::string &device, const char *pin, std::chrono::microseconds delay)
{
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        verifyOnce(device, pin);
        ::_exit(0);
    }
    EXPECT_GT(pid, 0);
    if (delay.count() > 0)
        ::usleep(useconds_t(delay.count()));
    ::kill(pid, SIGKILL);
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    return WIFSIGNALED(status);
}

// How long a child takes from fork to exit for one check: the range the kills are spread over.
std::chrono::microseconds childCheckDuration(const std::string &device, const char *pin)
{
    std::vector<long> samples;
    for (int i = 0; i < 7; ++i) {
        const auto start = std::chrono::steady_clock::now();
        std::fflush(nullptr);
        const pid_t pid = ::fork();
        if (pid == 0) {
            verifyOnce(device, pin);
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        samples.push_back(long(std::chrono::duration_cast<std::chrono::microseconds>(
                                   std::chrono::steady_clock::now() - start)
                                   .count()));
    }
    std::sort(samples.begin(), samples.end());
    return std::chrono::microseconds(samples[samples.size() / 2]);
}

int strayFiles(const std::string &folder)
{
    int count = 0;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().find(".tmp.") != std::string::npos)
            ++count;
    }
    return count;
}

} // namespace

class SoftSkfRobustPinCounter : public SoftSkfTest
{
protected:
    void reprovision(unsigned maxRetries)
    {
        std::string error;
        ASSERT_TRUE(softskf::removeDevice(root(), kDevice, &error)) << error;
        provision(kDevice, maxRetries);
    }
};

TEST_F(SoftSkfRobustPinCounter, killedWrongPinCheckLeavesOldOrNewCounter)
{
    constexpr unsigned kMaxRetries = 8;
    constexpr int kRounds = 200;
    provision(kDevice, kMaxRetries);
    // Calibrate on the right PIN, which leaves the counter full.
    const auto duration = childCheckDuration(kDevice, kUserPin);
    ASSERT_EQ(remainingTries(kDevice), kMaxRetries);

    std::mt19937 random(std::random_device{}());
    // Kills spread from before the child has connected to after it has written the counter.
    std::uniform_int_distribution<long> delays(0, duration.count() * 5 / 4);
    int killed = 0, decremented = 0, reprovisioned = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ULONG previous = remainingTries(kDevice);
        if (previous == 0) {
            // Unblocking is not offered by the device: start over with a new one.
            reprovision(kMaxRetries);
            ++reprovisioned;
            previous = remainingTries(kDevice);
            ASSERT_EQ(previous, kMaxRetries);
        }
        if (killDuringCheck(kDevice, kWrongPin, std::chrono::microseconds(delays(random))))
            ++killed;
        ULONG code = 0;
        const ULONG now = remainingTries(kDevice, &code);
        ASSERT_EQ(code, SAR_OK) << "the counter file is unreadable after a kill: " << hexCode(code);
        ASSERT_LE(now, previous) << "the counter went up";
        ASSERT_GE(now + 1, previous) << "the counter lost more than one try";
        if (now + 1 == previous)
            ++decremented;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const int leftovers = strayFiles(applicationPath(kDevice));
    std::cout << kRounds << " rounds in " << seconds << " s, child check "
              << duration.count() << " us: " << killed << " killed before exiting, "
              << decremented << " decrements, " << reprovisioned << " reprovisioned, "
              << leftovers << " temporary files left by killed writers\n";
    RecordProperty("killed", killed);
    RecordProperty("decremented", decremented);
    // The delays must really cover both sides of the write, or the test proves nothing.
    EXPECT_GT(killed, kRounds / 10);
    EXPECT_GT(decremented, kRounds / 10);
}

TEST_F(SoftSkfRobustPinCounter, killedRightPinCheckLeavesOldOrFullCounter)
{
    constexpr unsigned kMaxRetries = 8;
    constexpr int kRounds = 100;
    provision(kDevice, kMaxRetries);
    const auto duration = childCheckDuration(kDevice, kUserPin);
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<long> delays(0, duration.count() * 5 / 4);
    int resets = 0;
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        // One wrong check first, so that a reset is visible.
        ASSERT_EQ(verifyOnce(kDevice, kWrongPin), SAR_PIN_INCORRECT);
        const ULONG previous = remainingTries(kDevice);
        ASSERT_EQ(previous, kMaxRetries - 1);
        killDuringCheck(kDevice, kUserPin, std::chrono::microseconds(delays(random)));
        ULONG code = 0;
        const ULONG now = remainingTries(kDevice, &code);
        ASSERT_EQ(code, SAR_OK) << hexCode(code);
        ASSERT_TRUE(now == previous || now == kMaxRetries) << "counter " << now;
        if (now == kMaxRetries)
            ++resets;
        // Whatever the kill left, the right PIN brings the counter back.
        ASSERT_EQ(verifyOnce(kDevice, kUserPin), SAR_OK);
    }
    std::cout << kRounds << " rounds, " << resets << " resets landed before the kill\n";
    EXPECT_GT(resets, 0);
}

TEST_F(SoftSkfRobustPinCounter, concurrentProcessesLoseNoDecrementAndReadersNeverSeeATornFile)
{
    constexpr unsigned kMaxRetries = 255;
    constexpr int kWriters = 2;
    constexpr int kTriesEach = 20;
    constexpr int kReaders = 2;
    provision(kDevice, kMaxRetries);

    // Everyone waits on the pipe until the parent closes it, so the checks really overlap.
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    std::vector<pid_t> writers, readers;
    int stopReaders[2];
    ASSERT_EQ(::pipe(stopReaders), 0);
    std::fflush(nullptr);
    for (int i = 0; i < kWriters + kReaders; ++i) {
        const bool writer = i < kWriters;
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            ::close(gate[1]);
            ::close(stopReaders[1]);
            char ignored;
            (void)::read(gate[0], &ignored, 1);
            if (writer) {
                // Each answer counts down strictly: nobody else's decrement is undone.
                ULONG last = kMaxRetries + 1;
                for (int t = 0; t < kTriesEach; ++t) {
                    std::string name = kDevice, wrong = kWrongPin;
                    char application[] = "SOFTAPP";
                    DEVHANDLE handle = nullptr;
                    HAPPLICATION app = nullptr;
                    ULONG retries = 0;
                    if (SKF_ConnectDev(name.data(), &handle) != SAR_OK
                        || SKF_OpenApplication(handle, application, &app) != SAR_OK)
                        ::_exit(20);
                    if (SKF_VerifyPIN(app, USER_TYPE, wrong.data(), &retries) != SAR_PIN_INCORRECT)
                        ::_exit(21);
                    if (retries >= last)
                        ::_exit(22);
                    last = retries;
                    SKF_DisConnectDev(handle);
                }
                ::_exit(0);
            }
            // Readers: every read succeeds and the counter never goes up.
            ::fcntl(stopReaders[0], F_SETFL, O_NONBLOCK);
            ULONG last = kMaxRetries;
            int reads = 0;
            for (;;) {
                char stop;
                if (::read(stopReaders[0], &stop, 1) == 0 && reads > 0)
                    break;
                ULONG code = 0;
                const ULONG now = remainingTries(kDevice, &code);
                if (code != SAR_OK)
                    ::_exit(30);
                if (now > last)
                    ::_exit(31);
                last = now;
                ++reads;
            }
            ::_exit(0);
        }
        (writer ? writers : readers).push_back(pid);
    }
    ::close(gate[0]);
    ::close(stopReaders[0]);
    ::close(gate[1]);
    for (const pid_t pid : writers) {
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << "writer " << pid;
    }
    ::close(stopReaders[1]);
    for (const pid_t pid : readers) {
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << "reader " << pid;
    }
    EXPECT_EQ(remainingTries(kDevice), kMaxRetries - kWriters * kTriesEach);
}
