#include "name_list.h"

#include <cstring>
#include <limits>

namespace softskf::driver {

namespace {
Status answerSize(std::size_t needed, bool haveBuffer, ULONG *size)
{
    if (needed > std::numeric_limits<ULONG>::max())
        return Status::failure(SAR_FAIL, std::to_string(needed) + " bytes do not fit a ULONG size");
    const ULONG given = *size;
    *size = static_cast<ULONG>(needed);
    if (haveBuffer && given < needed)
        return Status::failure(SAR_BUFFER_TOO_SMALL, "buffer holds " + std::to_string(given)
                                                         + " bytes, " + std::to_string(needed)
                                                         + " needed");
    return Status::success();
}
} // namespace

Status writeNameList(const std::vector<std::string> &names, LPSTR buffer, ULONG *size)
{
    if (!size)
        return Status::failure(SAR_INVALIDPARAMERR, "size pointer is null");
    std::size_t needed = 1;
    for (const auto &name : names)
        needed += name.size() + 1;
    Status status = answerSize(needed, buffer != nullptr, size);
    if (!status.ok() || !buffer)
        return status;
    char *cursor = buffer;
    for (const auto &name : names) {
        std::memcpy(cursor, name.c_str(), name.size() + 1);
        cursor += name.size() + 1;
    }
    *cursor = '\0';
    return Status::success();
}

Status writeBytes(const std::vector<unsigned char> &bytes, BYTE *buffer, ULONG *size)
{
    if (!size)
        return Status::failure(SAR_INVALIDPARAMERR, "size pointer is null");
    Status status = answerSize(bytes.size(), buffer != nullptr, size);
    if (!status.ok() || !buffer)
        return status;
    if (!bytes.empty())
        std::memcpy(buffer, bytes.data(), bytes.size());
    return Status::success();
}

} // namespace softskf::driver
