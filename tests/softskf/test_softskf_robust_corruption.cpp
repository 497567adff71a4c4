// A damaged device folder: every file and folder of a provisioned device in turn is truncated,
// filled with garbage, extended, bit-flipped, removed, replaced by a folder or made unreadable.
// The driver must answer SAR_* codes and never crash, never accept a wrong PIN, and a second,
// healthy device must stay fully usable in the same process. Each fault runs in a child process
// so that a crash is reported against its row instead of ending the suite.
#include "test_softskf_robust_support.h"

#include <filesystem>
#include <iostream>
#include <set>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace softskf_test;
using namespace softskf_robust;
namespace fs = std::filesystem;

namespace {

constexpr char kVictim[] = "victim";
constexpr char kHealthy[] = "healthy";

// Exit codes of a fault's child.
constexpr int kChildPassed = 0;
constexpr int kUnknownCode = 10;
constexpr int kWrongPinAccepted = 11;
constexpr int kHealthyDeviceFailed = 12;
constexpr int kPermissionsDoNotBind = 77;

enum class Fault {
    Empty,          // zero bytes
    Half,           // the first half only
    OneByteShort,   // the last byte missing
    Extended,       // 64 extra bytes of garbage after the real content
    Garbage,        // same size, random bytes
    FlippedBit,     // one bit flipped in the middle
    Removed,        // gone
    Folder,         // a folder where the file was
    NoPermissions,  // mode 0000
};

const char *faultName(Fault fault)
{
    switch (fault) {
    case Fault::Empty: return "empty";
    case Fault::Half: return "half";
    case Fault::OneByteShort: return "one byte short";
    case Fault::Extended: return "extended";
    case Fault::Garbage: return "garbage";
    case Fault::FlippedBit: return "flipped bit";
    case Fault::Removed: return "removed";
    case Fault::Folder: return "folder instead";
    case Fault::NoPermissions: return "mode 0000";
    }
    return "?";
}

void applyFault(const fs::path &path, Fault fault)
{
    Bytes bytes = fs::is_regular_file(path) ? readAll(path.string()) : Bytes();
    switch (fault) {
    case Fault::Empty: bytes.clear(); break;
    case Fault::Half: bytes.resize(bytes.size() / 2); break;
    case Fault::OneByteShort: if (!bytes.empty()) bytes.pop_back(); break;
    case Fault::Extended: {
        const Bytes extra = randomBytes(64);
        bytes.insert(bytes.end(), extra.begin(), extra.end());
        break;
    }
    case Fault::Garbage: bytes = randomBytes(bytes.size()); break;
    case Fault::FlippedBit: if (!bytes.empty()) bytes[bytes.size() / 2] ^= 0x10; break;
    case Fault::Removed: fs::remove_all(path); return;
    case Fault::Folder: fs::remove_all(path); fs::create_directory(path); return;
    case Fault::NoPermissions: fs::permissions(path, fs::perms::none); return;
    }
    writeAll(path.string(), bytes);
}

// Undoes what stops removing a folder tree: folders without permissions.
void restoreModes(const fs::path &root)
{
    std::error_code ignored;
    fs::permissions(root, fs::perms::owner_all, ignored);
    for (auto it = fs::recursive_directory_iterator(root, ignored);
         it != fs::recursive_directory_iterator(); it.increment(ignored)) {
        fs::permissions(it->path(), fs::perms::owner_all, ignored);
    }
}

} // namespace

class SoftSkfRobustCorruption : public SoftSkfTest {};

TEST_F(SoftSkfRobustCorruption, everyDamagedFileAnswersCodesAndSparesOtherDevices)
{
    provision(kHealthy);
    const RoadInput healthy = roadFor(root(), kHealthy);
    ASSERT_TRUE(walkRoad(healthy).decrypted) << "the healthy device must work before any fault";

    // The device's own files, found on disk so that a file added later is covered too.
    provision(kVictim);
    std::vector<std::pair<std::string, bool>> entries;  // relative path, is a folder
    for (const auto &entry : fs::recursive_directory_iterator(devicePath(kVictim)))
        entries.emplace_back(fs::relative(entry.path(), devicePath(kVictim)).string(),
                             entry.is_directory());
    std::set<std::string> found;
    for (const auto &entry : entries)
        found.insert(entry.first);
    for (const char *expected : {"device.dat", "SOFTAPP/user.pin", "SOFTAPP/admin.pin",
                                 "SOFTAPP/SM2Container/container.dat",
                                 "SOFTAPP/SM2Container/enc.cer", "SOFTAPP/SM2Container/enc.key",
                                 "SOFTAPP/SM2Container/sign.cer", "SOFTAPP/SM2Container/sign.key"})
        EXPECT_TRUE(found.count(expected)) << expected << " is not where the layout says";

    const std::vector<Fault> fileFaults = {Fault::Empty, Fault::Half, Fault::OneByteShort,
                                           Fault::Extended, Fault::Garbage, Fault::FlippedBit,
                                           Fault::Removed, Fault::Folder, Fault::NoPermissions};
    const std::vector<Fault> folderFaults = {Fault::Removed, Fault::NoPermissions};

    int rows = 0, permissionRowsSkipped = 0;
    std::ostringstream table;
    for (const auto &[relative, isFolder] : entries) {
        for (const Fault fault : isFolder ? folderFaults : fileFaults) {
            const std::string row = relative + " " + faultName(fault);
            SCOPED_TRACE(row);
            restoreModes(devicePath(kVictim));
            softskf::removeDevice(root(), kVictim, nullptr);
            fs::remove_all(devicePath(kVictim));
            provision(kVictim);
            const RoadInput victim = roadFor(root(), kVictim);
            const fs::path target = fs::path(devicePath(kVictim)) / relative;
            applyFault(target, fault);

            const ChildOutcome outcome = runInChild([&](int fd) {
                if (fault == Fault::NoPermissions) {
                    dropFileAccessOverride();
                    // Without the override a mode-0000 entry must refuse this process.
                    const int probe = ::open(target.c_str(), O_RDONLY);
                    if (probe >= 0) {
                        ::close(probe);
                        return kPermissionsDoNotBind;
                    }
                }
                const RoadResult damaged = walkRoad(victim);
                report(fd, damaged.codes);
                if (!damaged.allCodesKnown)
                    return kUnknownCode;
                if (damaged.wrongPinAccepted)
                    return kWrongPinAccepted;
                const RoadResult other = walkRoad(healthy);
                if (!other.decrypted || !other.allCodesKnown) {
                    report(fd, " | healthy: " + other.codes);
                    return kHealthyDeviceFailed;
                }
                return kChildPassed;
            });
            ++rows;
            if (outcome.exited && outcome.code == kPermissionsDoNotBind) {
                // Only when even a process without the override can read a mode-0000 file
                // (a file system that ignores modes): nothing to test in this row.
                ++permissionRowsSkipped;
                continue;
            }
            EXPECT_TRUE(outcome.exited) << "the driver crashed with signal " << outcome.signal
                                        << " after: " << outcome.report;
            EXPECT_EQ(outcome.code, kChildPassed) << outcome.report;
            table << "  " << row << ": " << outcome.report << "\n";
        }
    }
    restoreModes(devicePath(kVictim));
    // The folder rows leave nothing behind that breaks the healthy device in this process.
    EXPECT_TRUE(walkRoad(healthy).decrypted);
    std::cout << rows << " faults (" << permissionRowsSkipped
              << " permission rows without effect here)\n"
              << table.str();
    RecordProperty("faults", rows);
    EXPECT_GE(rows, 70);
}

// A device whose folder holds nothing but a device.dat, and one whose application folder is
// empty: both answer codes, and the healthy device is untouched.
TEST_F(SoftSkfRobustCorruption, hollowDevicesAnswerCodes)
{
    provision(kHealthy);
    const RoadInput healthy = roadFor(root(), kHealthy);
    provision("hollow");
    provision("emptyapp");
    fs::remove_all(applicationPath("hollow"));
    for (const auto &entry : fs::directory_iterator(applicationPath("emptyapp")))
        fs::remove_all(entry.path());
    for (const char *device : {"hollow", "emptyapp"}) {
        SCOPED_TRACE(device);
        RoadInput input = healthy;
        input.device = device;
        const ChildOutcome outcome = runInChild([&](int fd) {
            const RoadResult result = walkRoad(input);
            report(fd, result.codes);
            return result.allCodesKnown && !result.wrongPinAccepted && !result.decrypted ? 0 : 1;
        });
        EXPECT_TRUE(outcome.exited) << "signal " << outcome.signal << " after " << outcome.report;
        EXPECT_EQ(outcome.code, 0) << outcome.report;
    }
    EXPECT_TRUE(walkRoad(healthy).decrypted);
}
