// Compiled against the installed public headers and linked with the installed plug-in: asks the
// plug-in for its version text's length, as hosts do.

#include "entry_points.h"
#include "zt_cryptographic.h"
#include "zt_envelope_data.h"

#include <cstdio>

int main()
{
    unsigned int length = 0;
    const int result = Zt_GetVersion(nullptr, &length);
    std::printf("Zt_GetVersion: %d, length %u\n", result, length);
    return result == 0 && length == 11 ? 0 : 1;
}
