#pragma once

#include "records.h"
#include "secret_bytes.h"
#include "status.h"

#include <cstdint>
#include <string>

namespace softskf {

enum class PinKind { Admin, User };

// The PIN records of an application folder.
Status readPinRecord(const std::string &applicationDir, PinKind kind, PinRecord *record);
Status writePinRecord(const std::string &applicationDir, PinKind kind, const PinRecord &record);

// Checks `pin` and keeps the retry counter, all under the application's file lock so that
// concurrent processes lose no decrement:
// - counter at 0: SAR_PIN_LOCKED, even for the right PIN; *remaining = 0;
// - wrong PIN: the counter goes down by one and is written back before the answer,
//   SAR_PIN_INCORRECT with *remaining = tries left (0 on the last one);
// - right PIN: the counter is reset to the limit (written only when it was lower),
//   and for the user PIN *sealingKey receives the key that opens the private keys.
// A PIN outside kMinPinLength..kMaxPinLength is SAR_PIN_LEN_RANGE and counts nothing.
Status verifyPinCounting(const std::string &applicationDir, PinKind kind, const std::string &pin,
                         std::uint32_t *remaining, SecretBytes *sealingKey);

} // namespace softskf
