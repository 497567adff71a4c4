#pragma once

#include "records.h"
#include "secret_bytes.h"
#include "status.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace softskf {

// PBKDF2-SHA256 rounds of a new device. A PIN check runs one derivation (the key of its wrap of
// the KEK, key_record.h), a change or unblock two.
inline constexpr std::uint32_t kDefaultPbkdf2Iterations = 30000;
inline constexpr std::uint32_t kMinPbkdf2Iterations = 1;
// Bounds what a damaged or hostile record can make one call cost (about a second).
inline constexpr std::uint32_t kMaxPbkdf2Iterations = 4000000;

inline constexpr std::size_t kMinPinLength = 4;
inline constexpr std::size_t kMaxPinLength = 64;
inline constexpr std::size_t kSealingKeyLength = 32;  // AES-256

// SAR_PIN_LEN_RANGE naming `what` ("user PIN", "new PIN", ...) when `pin` is outside
// kMinPinLength..kMaxPinLength bytes.
Status checkPinLength(const std::string &pin, const char *what);

Status pbkdf2Sha256(const std::string &pin, const unsigned char *salt, std::size_t saltLength,
                    std::uint32_t iterations, unsigned char *out, std::size_t outLength);

Status randomBytes(unsigned char *out, std::size_t length);

// A fresh record for `pin` with new random salts, a verifier and a full retry counter (the
// earlier layout, and an admin PIN not yet wrapping the KEK).
Status makePinRecord(const std::string &pin, std::uint32_t iterations, std::uint32_t maxRetries,
                     PinRecord *record);

// Whether `pin` is the record's PIN, compared in constant time. Counts nothing.
Status pinMatches(const PinRecord &record, const std::string &pin, bool *matches);

// Devices of the earlier layout: the key that seals the private keys, derived from the user PIN
// and the record's sealing salt. It becomes the KEK when such a device migrates.
Status deriveSealingKey(const PinRecord &record, const std::string &pin, SecretBytes *key);

} // namespace softskf
