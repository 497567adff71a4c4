#include "measured_exec.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

int measuredExecMain(int argc, char **argv)
{
    if (argc < 4)
        return 2;
    const int report = std::atoi(argv[2]);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(report);
        ::execv(argv[3], argv + 3);
        ::_exit(127);
    }
    if (child < 0)
        return 1;
    int status = 0;
    struct rusage usage {};
    if (::wait4(child, &status, 0, &usage) != child)
        return 1;
    const double cpu = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
                       + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    ::dprintf(report, "%ld %.6f %d\n", long(usage.ru_maxrss), cpu, code);
    ::close(report);
    return 0;
}
