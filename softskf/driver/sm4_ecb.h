#pragma once

#include "secret_bytes.h"
#include "status.h"

#include <cstddef>

namespace softskf {

inline constexpr std::size_t kSm4KeyLength = 16;
inline constexpr std::size_t kSm4BlockLength = 16;

enum class Padding { None, Pkcs7 };

// SM4-ECB decryption of `in` (a non-zero multiple of 16 bytes) straight into `out`, in one
// pass with no copy of the data. `out` may be `in` itself, not a partial overlap.
// *outLength receives the exact plaintext length, also when the answer is
// SAR_BUFFER_TOO_SMALL. Errors: SAR_INDATALENERR (empty or not whole blocks),
// SAR_DECRYPTPADERR (PKCS#7 padding does not check out).
Status sm4EcbDecrypt(const SecretBytes &key, Padding padding, const unsigned char *in,
                     std::size_t inLength, unsigned char *out, std::size_t outCapacity,
                     std::size_t *outLength);

} // namespace softskf
