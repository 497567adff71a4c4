#include "byte_view.h"

#include <cstdlib>
#include <cstring>

namespace softskf {

namespace {
void requireRoom(const std::vector<unsigned char> &buffer, std::size_t offset, std::size_t length)
{
    if (offset > buffer.size() || length > buffer.size() - offset)
        std::abort();
}
} // namespace

void storeU32le(std::vector<unsigned char> &buffer, std::size_t offset, std::uint32_t value)
{
    requireRoom(buffer, offset, 4);
    buffer[offset] = static_cast<unsigned char>(value);
    buffer[offset + 1] = static_cast<unsigned char>(value >> 8);
    buffer[offset + 2] = static_cast<unsigned char>(value >> 16);
    buffer[offset + 3] = static_cast<unsigned char>(value >> 24);
}

void storeBytes(std::vector<unsigned char> &buffer, std::size_t offset, const unsigned char *data,
                std::size_t length)
{
    requireRoom(buffer, offset, length);
    if (length != 0)
        std::memcpy(buffer.data() + offset, data, length);
}

} // namespace softskf
