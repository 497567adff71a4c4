#pragma once

#include <QtGlobal>

#include <cstdint>
#include <cstring>

namespace zthost {

// One ULONG or BOOL that a driver writes through a pointer, backed by 8 bytes so that a driver
// whose header makes it `unsigned long` or `long` (8 bytes on 64-bit Linux) writes inside it as
// safely as one with the standard 4 bytes.
//
// A pure output starts filled with a sentinel. Afterwards the bytes tell what happened: the
// upper half changed means the driver wrote 8 bytes; only the lower half changed means it wrote
// 4; nothing changed means it wrote nothing, and the value reads as 0, as a zeroed variable
// would. A value the driver reads first (a buffer's capacity) is stored zero-extended to 8
// bytes, which both widths read right; what it writes back reads right in both widths too,
// since a 4-byte write leaves the zeroed upper half as it was. Either way the value needs no
// knowledge of the driver's width. Little-endian only, which every platform the host is built
// for is.
class OutParameter
{
public:
    // For a value the driver only writes.
    static OutParameter output() { return OutParameter(Kind::Output, 0); }
    // For a value the driver reads and then may overwrite.
    static OutParameter inOut(std::uint64_t value) { return OutParameter(Kind::InOut, value); }

    // Where the driver writes; 8 bytes, 8-aligned.
    void *address() { return m_bytes; }

    // How many bytes the driver was seen writing: 4 or 8. 0 when that cannot be told: an
    // in-out value, or an output the driver left alone.
    int writtenBytes() const
    {
        if (m_kind != Kind::Output)
            return 0;
        if (std::memcmp(m_bytes + 4, kSentinel + 4, 4) != 0)
            return 8;
        if (std::memcmp(m_bytes, kSentinel, 4) != 0)
            return 4;
        return 0;
    }

    // The value, whichever width wrote it.
    std::uint64_t value() const
    {
        if (m_kind == Kind::Output) {
            const int written = writtenBytes();
            if (written == 0)
                return 0;
            if (written == 4)
                return littleEndian(4);
        }
        return littleEndian(8);
    }

    // The value as the host's 32-bit ULONG; a value past 32 bits (only an 8-byte driver can
    // write one) reads as the largest ULONG, which every caller's size bound refuses.
    quint32 value32() const
    {
        const std::uint64_t v = value();
        return v > 0xFFFFFFFFu ? 0xFFFFFFFFu : quint32(v);
    }

private:
    enum class Kind { Output, InOut };
    // Bytes no driver writes on purpose; a 4-byte write of exactly 0xE1965AC3 would read as
    // nothing written.
    static constexpr unsigned char kSentinel[8] = {0xC3, 0x5A, 0x96, 0xE1, 0xC3, 0x5A, 0x96, 0xE1};

    OutParameter(Kind kind, std::uint64_t value) : m_kind(kind)
    {
        if (kind == Kind::Output) {
            std::memcpy(m_bytes, kSentinel, sizeof m_bytes);
            return;
        }
        for (int i = 0; i < 8; ++i)
            m_bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }

    std::uint64_t littleEndian(int length) const
    {
        std::uint64_t v = 0;
        for (int i = length - 1; i >= 0; --i)
            v = v << 8 | m_bytes[i];
        return v;
    }

    Kind m_kind;
    alignas(8) unsigned char m_bytes[8];
};

static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN,
              "OutParameter reads a 4-byte write in the lower half of its 8 bytes");

} // namespace zthost
