#pragma once

#include <QString>

#include <cstdint>

namespace zthost {

// What a driver's result code means, for the host log.
struct SkfErrorInfo
{
    const char *name;    // "SAR_PIN_INCORRECT"; "unknown result code" when not in the table
    const char *meaning; // plain English
};

// Every result code the standard smart-key interface defines; codes outside it are described
// as unknown rather than refused, since vendor drivers add their own.
SkfErrorInfo describeSkfResult(std::uint32_t code);

// "SKF_VerifyPIN failed: 0x0A000024 SAR_PIN_INCORRECT (the PIN is wrong)".
QString skfFailureText(const char *function, std::uint32_t code);

} // namespace zthost
