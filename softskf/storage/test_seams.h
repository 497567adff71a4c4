#pragma once

// Seams between the storage code and the system, for tests only. The driver and the
// provisioning library are built without SOFTSKF_TEST_SEAMS: there each seam is the plain
// system call, or nothing at all. Only the test build of the device (target ztsoftskf_seams,
// never installed) compiles them as calls into test_seams.cpp, where a test can see every step
// by name, stop the process at one, or make a system call fail (test_seams_control.h).

#include <cstddef>
#include <cstdio>

#include <sys/types.h>
#include <unistd.h>

namespace softskf::seams {

// The steps, in the order a PIN operation passes them. Every file written passes the four
// steps of the writer (temporary, fsync, rename, folder fsync), then the step naming the
// record: a PIN change or unblock writes the key record, then the PIN records.
inline constexpr char kPinLocked[] = "PIN record locked";
inline constexpr char kPinRead[] = "PIN record read";
inline constexpr char kKeysRead[] = "key record read";
inline constexpr char kPinCompared[] = "PIN compared";
inline constexpr char kWriteTemporary[] = "write temporary";
inline constexpr char kSyncTemporary[] = "fsync temporary";
inline constexpr char kRename[] = "rename temporary over record";
inline constexpr char kSyncFolder[] = "fsync folder";
inline constexpr char kKeysWritten[] = "key record written";
inline constexpr char kPinWritten[] = "PIN record written";

#ifdef SOFTSKF_TEST_SEAMS
void reach(const char *step);
ssize_t write(const char *step, int fd, const void *data, std::size_t size);
int fsync(const char *step, int fd);
int rename(const char *step, const char *from, const char *to);
#else
inline void reach(const char *) {}
inline ssize_t write(const char *, int fd, const void *data, std::size_t size)
{
    return ::write(fd, data, size);
}
inline int fsync(const char *, int fd)
{
    return ::fsync(fd);
}
inline int rename(const char *, const char *from, const char *to)
{
    return std::rename(from, to);
}
#endif

} // namespace softskf::seams
