// Decodes bytes that arrive from the plug-in: every read is bounds-checked.

#include "key/block_cipher_record.h"

#include <cstring>

namespace zthost {

namespace {

// Reads a little-endian 32-bit number at `offset`; false when it does not fit in `bytes`.
bool readLittleEndian32(const QByteArray &bytes, int offset, ULONG *out)
{
    constexpr int kWidth = 4;
    if (offset < 0 || offset > bytes.size() - kWidth)
        return false;
    ULONG value = 0;
    for (int i = kWidth - 1; i >= 0; --i)
        value = (value << 8) | static_cast<unsigned char>(bytes.at(offset + i));
    *out = value;
    return true;
}

} // namespace

std::optional<BLOCKCIPHERPARAM> decodeBlockCipherRecord(const QByteArray &record, QString *error)
{
    using namespace BlockCipherRecord;
    if (record.size() != kSize) {
        if (error)
            *error = QStringLiteral("block-cipher record is %1 bytes, expected %2")
                         .arg(record.size())
                         .arg(kSize);
        return std::nullopt;
    }

    BLOCKCIPHERPARAM param;
    std::memset(&param, 0, sizeof param);
    static_assert(sizeof param.IV == kIvSize, "the IV field of the record and of the driver agree");
    std::memcpy(param.IV, record.constData() + kIvOffset, kIvSize);

    ULONG ivLen = 0;
    ULONG paddingType = 0;
    ULONG feedBitLen = 0;
    if (!readLittleEndian32(record, kIvLenOffset, &ivLen)
        || !readLittleEndian32(record, kPaddingTypeOffset, &paddingType)
        || !readLittleEndian32(record, kFeedBitLenOffset, &feedBitLen)) {
        if (error)
            *error = QStringLiteral("block-cipher record is %1 bytes, too short for its fields")
                         .arg(record.size());
        return std::nullopt;
    }
    if (ivLen > ULONG(kIvSize)) {
        if (error)
            *error = QStringLiteral("block-cipher record gives IVLen %1, more than the %2-byte IV")
                         .arg(ivLen)
                         .arg(kIvSize);
        return std::nullopt;
    }
    param.IVLen = ivLen;
    param.PaddingType = paddingType;
    param.FeedBitLen = feedBitLen;
    return param;
}

} // namespace zthost
