#pragma once

#include <skf.h>

#include <QByteArray>
#include <QString>

#include <optional>

namespace zthost {

// The 44-byte block-cipher record the plug-in hands to decryptInit: IV (32 bytes), then IVLen,
// PaddingType and FeedBitLen, each a little-endian 32-bit number. Keep in sync with the layout
// the plug-in writes.
namespace BlockCipherRecord {
inline constexpr int kIvOffset = 0;
inline constexpr int kIvSize = 32;
inline constexpr int kIvLenOffset = 32;
inline constexpr int kPaddingTypeOffset = 36;
inline constexpr int kFeedBitLenOffset = 40;
inline constexpr int kSize = 44;
} // namespace BlockCipherRecord

// Decodes the record field by field. Empty with `error` set when it is not exactly 44 bytes
// ("block-cipher record is 43 bytes, expected 44") or when IVLen claims more than the 32-byte IV
// field holds, which a driver would read past.
std::optional<BLOCKCIPHERPARAM> decodeBlockCipherRecord(const QByteArray &record, QString *error);

} // namespace zthost
