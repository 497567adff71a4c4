#pragma once

#include "status.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace softskf::cipher_blob {

// The wrapped form of an ECCCIPHERBLOB as callers send it (see skf.h).
inline constexpr std::size_t kXOffset = 0;
inline constexpr std::size_t kCoordinateFieldLength = 64;
inline constexpr std::size_t kYOffset = 64;
inline constexpr std::size_t kHashOffset = 128;
inline constexpr std::size_t kHashLength = 32;
inline constexpr std::size_t kCipherLengthOffset = 160;
// CipherLen is a ULONG: 4 bytes, or 8 in the test build with SKF_WIDE_TYPES.
inline constexpr std::size_t kCipherLengthLength = sizeof(ULONG);
inline constexpr std::size_t kCipherOffset = kCipherLengthOffset + kCipherLengthLength;
inline constexpr std::size_t kHeaderLength = kCipherOffset;
// SM2 coordinates are 256 bits: the left half of each 64-byte field is zero padding.
inline constexpr std::size_t kCurveCoordinateLength = 32;
inline constexpr std::size_t kPaddingLength = kCoordinateFieldLength - kCurveCoordinateLength;
// Longest wrapped value accepted. Session keys are 16 or 32 bytes; DEVINFO.MaxECCBufferSize
// reports this limit and the malformed-blob tests rely on it.
inline constexpr std::uint32_t kMaxCipherLength = 256;

// Rebuilds the SM2 ciphertext OpenSSL decrypts, DER
//   SEQUENCE { INTEGER x, INTEGER y, OCTET STRING hash, OCTET STRING cipher }
// from an untrusted blob of `size` bytes. Bytes past kCipherOffset + CipherLen are ignored.
// SAR_INDATALENERR: too short, CipherLen 0 or over the limit or past the end;
// SAR_INDATAERR: non-zero padding left of a coordinate.
Status toSm2Der(const unsigned char *blob, std::size_t size, std::vector<unsigned char> *der);

} // namespace softskf::cipher_blob
