#pragma once

#include "pin_kdf.h"
#include "secret_bytes.h"
#include "status.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace softskf {

// The device's key-encryption key (KEK): 32 random bytes that seal the private keys. It never
// reaches the disk in clear; the key record holds it wrapped (AES-256-GCM) once under a key
// derived (PBKDF2-SHA256) from the user PIN and once under one derived from the admin PIN, so
// that the admin PIN can give the user a new PIN without losing the keys. A PIN is right when
// its wrap opens: one file decides, so replacing that file (rename) changes a PIN in one step.
//
// Devices made before the key record existed have none: their private keys are sealed under
// a key derived from the user PIN and the sealing salt of user.pin, and the PIN records hold
// the verifiers. That derived key becomes the KEK when such a device migrates (pin_store.h).

inline constexpr std::size_t kKekLength = kSealingKeyLength;
inline constexpr std::size_t kWrapNonceLength = 12;
inline constexpr std::size_t kWrapTagLength = 16;

struct WrappedKek {
    bool present = false;
    std::array<unsigned char, kSaltLength> salt{};
    std::array<unsigned char, kWrapNonceLength> nonce{};
    std::array<unsigned char, kWrapTagLength> tag{};
    std::array<unsigned char, kKekLength> cipher{};
};

enum class PinKind { Admin, User };

struct KeyRecord {
    std::uint32_t iterations = 0;
    WrappedKek user;
    WrappedKek admin;  // absent on a migrated device until the admin PIN is seen with the KEK

    WrappedKek &slot(PinKind kind) { return kind == PinKind::User ? user : admin; }
    const WrappedKek &slot(PinKind kind) const { return kind == PinKind::User ? user : admin; }
};

std::vector<unsigned char> encodeKeyRecord(const KeyRecord &record);
// Parses untrusted bytes: a record of the wrong size, magic, version or flags, or iterations
// out of range, is SAR_FILEERR.
Status decodeKeyRecord(const std::vector<unsigned char> &bytes, KeyRecord *record);

// A fresh random KEK.
Status makeKek(SecretBytes *kek);

// Wraps `kek` under `pin` with a new salt and nonce.
Status wrapKek(const SecretBytes &kek, PinKind kind, const std::string &pin,
               std::uint32_t iterations, WrappedKek *wrapped);

// Opens a wrap with `pin`: *opened tells whether it did (a wrong PIN or an altered wrap does
// not), and then *kek holds the KEK.
Status unwrapKek(const WrappedKek &wrapped, PinKind kind, const std::string &pin,
                 std::uint32_t iterations, bool *opened, SecretBytes *kek);

} // namespace softskf
