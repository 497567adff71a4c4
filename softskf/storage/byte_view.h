#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace softskf {

// Bounds-checked reading of a byte range by offset and length. Every read says whether the
// field lies wholly inside the range; nothing is read past the end and no sum overflows.
class ByteView {
public:
    ByteView() = default;
    ByteView(const unsigned char *data, std::size_t size) : data_(data), size_(size) {}
    explicit ByteView(const std::vector<unsigned char> &bytes)
        : data_(bytes.data()), size_(bytes.size())
    {
    }

    const unsigned char *data() const { return data_; }
    std::size_t size() const { return size_; }

    bool contains(std::size_t offset, std::size_t length) const
    {
        return offset <= size_ && length <= size_ - offset;
    }

    bool slice(std::size_t offset, std::size_t length, ByteView *out) const
    {
        if (!contains(offset, length))
            return false;
        *out = ByteView(data_ + offset, length);
        return true;
    }

    bool u32le(std::size_t offset, std::uint32_t *out) const
    {
        if (!contains(offset, 4))
            return false;
        const unsigned char *p = data_ + offset;
        *out = std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16
               | std::uint32_t(p[3]) << 24;
        return true;
    }

    // A little-endian unsigned number of `length` bytes (1 to 8).
    bool uintLe(std::size_t offset, std::size_t length, std::uint64_t *out) const
    {
        if (length == 0 || length > 8 || !contains(offset, length))
            return false;
        std::uint64_t value = 0;
        for (std::size_t i = length; i-- > 0;)
            value = value << 8 | data_[offset + i];
        *out = value;
        return true;
    }

    bool copyTo(std::size_t offset, std::size_t length, unsigned char *out) const
    {
        if (!contains(offset, length))
            return false;
        for (std::size_t i = 0; i < length; ++i)
            out[i] = data_[offset + i];
        return true;
    }

    bool allZero() const
    {
        unsigned char acc = 0;
        for (std::size_t i = 0; i < size_; ++i)
            acc |= data_[i];
        return acc == 0;
    }

private:
    const unsigned char *data_ = nullptr;
    std::size_t size_ = 0;
};

// Writing into a buffer of known size at named offsets; the layouts are ours, so a field
// that does not fit is a programming error and aborts rather than corrupting memory.
void storeU32le(std::vector<unsigned char> &buffer, std::size_t offset, std::uint32_t value);
void storeBytes(std::vector<unsigned char> &buffer, std::size_t offset, const unsigned char *data,
                std::size_t length);

} // namespace softskf
