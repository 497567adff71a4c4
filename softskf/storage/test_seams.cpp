// The seams of the test build: every one asks the test's hook first.
#include "test_seams.h"
#include "test_seams_control.h"

#include <cerrno>
#include <utility>

namespace softskf::seams {

namespace {

Hook &installedHook()
{
    static Hook hook;
    return hook;
}

// The hook's answer for the step: 0 to go on, else the errno to fail with.
int ask(const char *step)
{
    const Hook &hook = installedHook();
    return hook ? hook(step) : 0;
}

} // namespace

void setHook(Hook hook)
{
    installedHook() = std::move(hook);
}

void reach(const char *step)
{
    ask(step);
}

ssize_t write(const char *step, int fd, const void *data, std::size_t size)
{
    if (const int error = ask(step)) {
        errno = error;
        return -1;
    }
    return ::write(fd, data, size);
}

int fsync(const char *step, int fd)
{
    if (const int error = ask(step)) {
        errno = error;
        return -1;
    }
    return ::fsync(fd);
}

int rename(const char *step, const char *from, const char *to)
{
    if (const int error = ask(step)) {
        errno = error;
        return -1;
    }
    return std::rename(from, to);
}

} // namespace softskf::seams
