// Records are replaced in one step that a crash cannot tear: the new contents go to a temporary
// file, which is synced before it is renamed over the record, and the folder is synced after.
// A failing sync refuses the write and leaves the old record as it was.
#include "softskf_fixture.h"
#include "test_softskf_robust_support.h"

#include "file_io.h"
#include "test_seams_control.h"

#include <cerrno>
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

using namespace softskf_test;
using namespace softskf_robust;
namespace fs = std::filesystem;

namespace {

// A seam hook for the length of one test: answers `fail` for the step named `failing` and
// records the name of every step it sees.
class ScopedSeamHook
{
public:
    explicit ScopedSeamHook(const char *failing = "", int fail = 0)
    {
        softskf::seams::setHook([this, failing = std::string(failing), fail](const char *step) {
            steps.push_back(step);
            return step == failing ? fail : 0;
        });
    }
    ~ScopedSeamHook() { softskf::seams::setHook(nullptr); }
    ScopedSeamHook(const ScopedSeamHook &) = delete;
    ScopedSeamHook &operator=(const ScopedSeamHook &) = delete;

    std::vector<std::string> steps;
};

std::vector<std::string> entriesOf(const std::string &folder)
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

class SoftSkfFileWriter : public SoftSkfTest
{
protected:
    void SetUp() override
    {
        SoftSkfTest::SetUp();
        ASSERT_EQ(softskf::makePrivateDirectories(root()).code, SAR_OK);
    }
    std::string record() const { return root() + "/record.dat"; }
};

TEST_F(SoftSkfFileWriter, recordIsWrittenSyncedRenamedThenItsFolderSynced)
{
    ASSERT_EQ(softskf::writeFileAtomically(record(), Bytes{'o', 'l', 'd'}).code, SAR_OK);
    ScopedSeamHook hook;
    ASSERT_EQ(softskf::writeFileAtomically(record(), Bytes{'n', 'e', 'w'}).code, SAR_OK);
    EXPECT_EQ(hook.steps, (std::vector<std::string>{
                              softskf::seams::kWriteTemporary, softskf::seams::kSyncTemporary,
                              softskf::seams::kRename, softskf::seams::kSyncFolder}));
    EXPECT_EQ(readAll(record()), (Bytes{'n', 'e', 'w'}));
    EXPECT_EQ(entriesOf(root()), std::vector<std::string>{"record.dat"});
}

TEST_F(SoftSkfFileWriter, failingSyncRefusesTheWriteAndKeepsTheOldRecord)
{
    ASSERT_EQ(softskf::writeFileAtomically(record(), Bytes{'o', 'l', 'd'}).code, SAR_OK);
    ScopedSeamHook hook(softskf::seams::kSyncTemporary, EIO);
    const softskf::Status status = softskf::writeFileAtomically(record(), Bytes{'n', 'e', 'w'});
    EXPECT_EQ(status.code, SAR_WRITEFILEERR);
    const std::string temporary = record() + ".tmp.";
    EXPECT_EQ(status.message.rfind("cannot write 3 bytes to " + temporary, 0), 0u) << status.message;
    const std::string reason = ": Input/output error";
    EXPECT_EQ(status.message.substr(status.message.size() - reason.size()), reason)
        << status.message;
    EXPECT_EQ(hook.steps, (std::vector<std::string>{softskf::seams::kWriteTemporary,
                                                    softskf::seams::kSyncTemporary}));
    EXPECT_EQ(readAll(record()), (Bytes{'o', 'l', 'd'}));
    EXPECT_EQ(entriesOf(root()), std::vector<std::string>{"record.dat"})
        << "the temporary is left behind";
}

TEST_F(SoftSkfFileWriter, wrongPinWhoseCounterCannotBeSyncedIsRefusedAndCostsNoTry)
{
    provision("dev", 6);
    {
        ScopedSeamHook hook(softskf::seams::kSyncTemporary, EIO);
        EXPECT_EQ(verifyOnce("dev", "wrong-pin-0"), SAR_WRITEFILEERR);
    }
    EXPECT_EQ(remainingTries("dev"), 6u);
    EXPECT_EQ(verifyOnce("dev", "wrong-pin-0"), SAR_PIN_INCORRECT);
    EXPECT_EQ(remainingTries("dev"), 5u);
}
