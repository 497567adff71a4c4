#pragma once

#include "key_record.h"
#include "records.h"
#include "secret_bytes.h"
#include "status.h"

#include <cstdint>
#include <string>

namespace softskf {

// The PIN records of an application folder: retry limits and counters (and, on a device of
// the layout before the key record, the PIN verifiers).
Status readPinRecord(const std::string &applicationDir, PinKind kind, PinRecord *record);
Status writePinRecord(const std::string &applicationDir, PinKind kind, const PinRecord &record);

// The key record (key_record.h); *present is false on a device of the earlier layout.
Status readKeyRecord(const std::string &applicationDir, KeyRecord *record, bool *present);
Status writeKeyRecord(const std::string &applicationDir, const KeyRecord &record);

// Every PIN operation below runs under the application's file lock and keeps that PIN's retry
// counter, so that concurrent processes lose no decrement:
// - a PIN outside kMinPinLength..kMaxPinLength is SAR_PIN_LEN_RANGE and counts nothing;
// - counter at 0: SAR_PIN_LOCKED, even for the right PIN; *remaining = 0;
// - wrong PIN: the counter goes down by one and is written back before the answer,
//   SAR_PIN_INCORRECT with *remaining = tries left (0 on the last one);
// - right PIN: the operation is done, then the counter is reset to the limit.

// Checks `pin`. For the user PIN *kek receives the key that opens the private keys. A device
// of the earlier layout migrates on its first right user PIN: the key it derives from the PIN
// becomes the KEK, wrapped under the user PIN in a new key record (the sealed keys stay as they
// are). For the admin PIN, `userKek` (the KEK of a user login on the same application, or
// null) completes a migrated record that has no admin wrap yet.
Status verifyPinCounting(const std::string &applicationDir, PinKind kind, const std::string &pin,
                         std::uint32_t *remaining, SecretBytes *kek,
                         const SecretBytes *userKek = nullptr);

// Changes a PIN after checking the old one: the KEK is wrapped anew under the new PIN and the
// key record replaced in one rename, so either the old or the new PIN opens the keys.
Status changePinCounting(const std::string &applicationDir, PinKind kind,
                         const std::string &oldPin, const std::string &newPin,
                         std::uint32_t *remaining);

// Checks the admin PIN (counting on the admin counter), wraps the KEK opened with it under
// `newUserPin` and gives the user PIN a full counter. SAR_NOTSUPPORTYETERR when the device
// has no admin wrap (earlier layout, admin PIN never seen beside a user login): a new user PIN
// would lose the keys, so nothing is changed.
Status unblockUserPinCounting(const std::string &applicationDir, const std::string &adminPin,
                              const std::string &newUserPin, std::uint32_t *remaining);

// The user PIN checked without counting, and the KEK it opens (provisioning).
Status openWithUserPin(const std::string &applicationDir, const std::string &userPin,
                       SecretBytes *kek);

// A new device's PIN and key records: a random KEK wrapped under both PINs.
Status writeNewPinRecords(const std::string &applicationDir, const std::string &userPin,
                          const std::string &adminPin, std::uint32_t iterations,
                          std::uint32_t maxRetries, SecretBytes *kek);

} // namespace softskf
