#pragma once

// Where the fields of the structures the host and a smart-key driver exchange lie, for a driver
// whose ULONG is `ulongBytes` wide (4 as the standard has it, or 8 where a vendor's header makes
// it `unsigned long` on 64-bit Linux). The structures are byte-packed in both widths, as the
// standard's header declares them: only the ULONG fields and what follows them move. Nothing here
// depends on skf.h, so a test built with SKF_WIDE_TYPES can hold these offsets against the
// compiler's own layout of the wide structures.

namespace zthost::DriverLayout {

// ECCCIPHERBLOB in its wrapped form: X, Y (64 bytes each, right-aligned), HASH (32), CipherLen,
// then CipherLen bytes of cipher.
namespace EccCipherBlob {
inline constexpr int kXOffset = 0;
inline constexpr int kYOffset = 64;
inline constexpr int kCoordinateLength = 64;
inline constexpr int kHashOffset = 128;
inline constexpr int kHashLength = 32;
inline constexpr int kCipherLenOffset = 160;
constexpr int cipherOffset(int ulongBytes) { return kCipherLenOffset + ulongBytes; }
// The header before the cipher bytes: 164 or 168.
constexpr int headerLength(int ulongBytes) { return cipherOffset(ulongBytes); }
} // namespace EccCipherBlob

// BLOCKCIPHERPARAM, passed to SKF_DecryptInit by value: IV (32 bytes), IVLen, PaddingType,
// FeedBitLen.
namespace BlockCipherParam {
inline constexpr int kIvOffset = 0;
inline constexpr int kIvLength = 32;
constexpr int ivLenOffset(int ulongBytes) { return kIvLength + 0 * ulongBytes; }
constexpr int paddingTypeOffset(int ulongBytes) { return kIvLength + 1 * ulongBytes; }
constexpr int feedBitLenOffset(int ulongBytes) { return kIvLength + 2 * ulongBytes; }
// 44 or 56.
constexpr int size(int ulongBytes) { return kIvLength + 3 * ulongBytes; }
} // namespace BlockCipherParam

// DEVINFO, which SKF_GetDevInfo fills: the versions and texts, then eight ULONGs, then 64
// reserved bytes.
namespace DevInfo {
inline constexpr int kVersionOffset = 0; // major, minor
inline constexpr int kManufacturerOffset = 2;
inline constexpr int kManufacturerLength = 64;
inline constexpr int kIssuerOffset = 66;
inline constexpr int kIssuerLength = 64;
inline constexpr int kLabelOffset = 130;
inline constexpr int kLabelLength = 32;
inline constexpr int kSerialNumberOffset = 162;
inline constexpr int kSerialNumberLength = 32;
inline constexpr int kHwVersionOffset = 194;
inline constexpr int kFirmwareVersionOffset = 196;
inline constexpr int kFirstUlongOffset = 198;
// The ULONG fields in their order.
enum class Ulong {
    AlgSymCap,
    AlgAsymCap,
    AlgHashCap,
    DevAuthAlgId,
    TotalSpace,
    FreeSpace,
    MaxEccBufferSize,
    MaxBufferSize
};
inline constexpr int kUlongCount = 8;
constexpr int ulongOffset(Ulong field, int ulongBytes)
{
    return kFirstUlongOffset + static_cast<int>(field) * ulongBytes;
}
inline constexpr int kReservedLength = 64;
constexpr int reservedOffset(int ulongBytes)
{
    return kFirstUlongOffset + kUlongCount * ulongBytes;
}
// 294 or 326.
constexpr int size(int ulongBytes) { return reservedOffset(ulongBytes) + kReservedLength; }
// A buffer this large holds DEVINFO in either width.
inline constexpr int kLargestSize = 326;
} // namespace DevInfo

static_assert(EccCipherBlob::headerLength(4) == 164 && EccCipherBlob::headerLength(8) == 168);
static_assert(BlockCipherParam::size(4) == 44 && BlockCipherParam::size(8) == 56);
static_assert(DevInfo::size(4) == 294 && DevInfo::size(8) == DevInfo::kLargestSize);

} // namespace zthost::DriverLayout
