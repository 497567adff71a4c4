#include "entry_guard.h"

#include <cstdio>
#include <cstdlib>

namespace softskf::driver {

ULONG report(const char *function, const Status &status)
{
    if (!status.ok()) {
        const char *debug = std::getenv("SOFTSKF_DEBUG");
        if (debug && *debug)
            std::fprintf(stderr, "softskf: %s: 0x%08X %s\n", function,
                         static_cast<unsigned>(status.code), status.message.c_str());
    }
    return status.code;
}

} // namespace softskf::driver
