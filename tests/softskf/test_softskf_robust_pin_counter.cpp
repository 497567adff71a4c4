// Processes checking PINs on one device at once lose no decrement, and readers polling the
// counter meanwhile never see a torn file. (Checks killed part-way are in
// test_softskf_pin_counter_kills.cpp, on the test build of the device.)
#include "test_softskf_robust_support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace softskf_test;
using namespace softskf_robust;

namespace {
constexpr char kDevice[] = "dev";
constexpr char kWrongPin[] = "wrong-pin-0";
} // namespace

class SoftSkfRobustPinCounter : public SoftSkfTest {};

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
