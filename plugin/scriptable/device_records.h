#pragma once

#include <QByteArray>

#include <array>

// The two records the key device takes for opening an envelope, laid out byte by byte as the
// smart-key interface defines them: multi-byte integers little-endian, no padding.
namespace ZtDeviceRecords {

// ECCCIPHERBLOB with a 16-byte cipher part: the SM2-encrypted session key.
constexpr int kBlobXOffset = 0;           // 64 bytes, the value right-aligned
constexpr int kBlobYOffset = 64;          // 64 bytes, likewise
constexpr int kBlobHashOffset = 128;      // 32 bytes
constexpr int kBlobCipherLenOffset = 160; // unsigned 32-bit
constexpr int kBlobCipherOffset = 164;    // 16 bytes
constexpr int kBlobCoordinateField = 64;
constexpr int kEccCipherBlobLength = 180;
constexpr unsigned char kSessionKeyCipherLength = 16;
static_assert(kBlobCipherOffset + kSessionKeyCipherLength == kEccCipherBlobLength,
              "the blob ends with its 16-byte cipher part");

// The blob for packed key data (x 32 ‖ y 32 ‖ HASH 32 ‖ CipherText 16). Bytes the packed data
// does not have stay zero; bytes past its 112th are ignored.
QByteArray eccCipherBlob(const QByteArray &packedKey);

// BLOCKCIPHERPARAM: SM4-ECB with PKCS#5 padding, no IV.
constexpr int kParamIvOffset = 0;          // 32 bytes
constexpr int kParamIvLenOffset = 32;      // unsigned 32-bit
constexpr int kParamPaddingOffset = 36;    // unsigned 32-bit
constexpr int kParamFeedBitLenOffset = 40; // unsigned 32-bit
constexpr int kBlockCipherParamLength = 44;
constexpr unsigned char kPkcs5Padding = 1;

using BlockCipherParam = std::array<char, kBlockCipherParamLength>;
BlockCipherParam sm4EcbDecryptParam();

} // namespace ZtDeviceRecords
