#pragma once

#include "records.h"
#include "secret_bytes.h"
#include "status.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace softskf {

// PBKDF2-SHA256 rounds of a new device. A user PIN check runs two derivations (the verifier
// and the sealing key), about 13 ms together on the 2-core build machine; admin checks run one.
inline constexpr std::uint32_t kDefaultPbkdf2Iterations = 30000;
inline constexpr std::uint32_t kMinPbkdf2Iterations = 1;
// Bounds what a damaged or hostile record can make one call cost (about a second).
inline constexpr std::uint32_t kMaxPbkdf2Iterations = 4000000;

inline constexpr std::size_t kMinPinLength = 4;
inline constexpr std::size_t kMaxPinLength = 64;
inline constexpr std::size_t kSealingKeyLength = 32;  // AES-256

Status pbkdf2Sha256(const std::string &pin, const unsigned char *salt, std::size_t saltLength,
                    std::uint32_t iterations, unsigned char *out, std::size_t outLength);

Status randomBytes(unsigned char *out, std::size_t length);

// A fresh record for `pin` with new random salts and a full retry counter.
Status makePinRecord(const std::string &pin, std::uint32_t iterations, std::uint32_t maxRetries,
                     PinRecord *record);

// Whether `pin` is the record's PIN, compared in constant time. Counts nothing.
Status pinMatches(const PinRecord &record, const std::string &pin, bool *matches);

// The key that seals the private keys, derived from the user PIN and the record's own salt.
Status deriveSealingKey(const PinRecord &record, const std::string &pin, SecretBytes *key);

} // namespace softskf
