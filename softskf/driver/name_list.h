#pragma once

#include "skf.h"
#include "status.h"

#include <string>
#include <vector>

namespace softskf::driver {

// Writes names as a multi-string (each name NUL-terminated, one more NUL at the end; no
// names: a single NUL). Null buffer: *size receives the size needed. Smaller buffer:
// SAR_BUFFER_TOO_SMALL and the size needed.
Status writeNameList(const std::vector<std::string> &names, LPSTR buffer, ULONG *size);

// Copies out a byte string with the same size-query rules.
Status writeBytes(const std::vector<unsigned char> &bytes, BYTE *buffer, ULONG *size);

} // namespace softskf::driver
