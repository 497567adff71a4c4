#pragma once

#include <QtGlobal>

namespace zthost::cli {

// The longest Base64 text WebZtDecode can be handed, in characters.
//
// The envelope reaches the plug-in as one QString of Base64 text, and the plug-in's first step
// is QString::toUtf8(), which under Qt 5 reserves three bytes a character before it converts.
// A Qt 5 array's block (a 24-byte header, the bytes and a terminating null byte) must stay
// within INT_MAX bytes, or the allocation throws std::bad_alloc and the process ends:
// 24 + 3 * n + 1 <= 2147483647 gives n <= 715827874. Every other copy on the road is smaller
// (the QString itself needs 2 * n + 26 bytes, the DER three quarters of n, the answer about
// the same as the text), so this reservation is the bound. A whole envelope in Base64 is a
// multiple of four characters: 715827872 at most, the Base64 of 536870904 bytes of DER.
constexpr qint64 kQt5MaxEnvelopeBase64Characters = 715827874;

// The bound for the Qt the command runs with (only Qt 5 so far).
inline qint64 maxEnvelopeBase64Characters()
{
    return kQt5MaxEnvelopeBase64Characters;
}

// The largest envelope DER whose Base64 text fits in maxEnvelopeBase64Characters().
inline qint64 maxEnvelopeDerBytes()
{
    return maxEnvelopeBase64Characters() / 4 * 3;
}

} // namespace zthost::cli
