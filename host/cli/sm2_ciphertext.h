#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::cli {

// Reads OpenSSL's SM2 ciphertext (untrusted bytes from the caller's point of view): the DER
// SEQUENCE { INTEGER x, INTEGER y, OCTET STRING hash, OCTET STRING cipherText }.

// Sizes of the packed key data the library takes: x ‖ y ‖ hash ‖ cipherText.
namespace PackedKey {
inline constexpr int kCoordinateSize = 32;
inline constexpr int kHashSize = 32;
// The encrypted 16-byte SM4 session key: SM2 ciphertext is as long as its plaintext.
inline constexpr int kCipherTextSize = 16;
inline constexpr int kSize = 2 * kCoordinateSize + kHashSize + kCipherTextSize;
static_assert(kSize == 112, "the library reads 112 bytes of packed key data");
} // namespace PackedKey

struct Sm2Ciphertext
{
    // Unsigned big-endian magnitudes: DER's sign octet removed, leading zero octets kept out.
    QByteArray x;
    QByteArray y;
    QByteArray hash;
    QByteArray cipherText;
    // The DER's own length, which may be shorter than the buffer it was read from.
    int derSize = 0;
};

// False with `error` naming the element and the sizes, e.g. "SM2 ciphertext: hash is 20 bytes,
// expected 32". Trailing bytes after the SEQUENCE are ignored: OpenSSL may report its buffer's
// size rather than the DER's.
bool parseSm2Ciphertext(const QByteArray &der, Sm2Ciphertext *ciphertext, QString *error);

// Whether both coordinates take their full 32 bytes. A coordinate with a leading zero octet
// is shorter as a DER INTEGER; the host's ASN.1 component writes INTEGERs strictly and the
// library reads a short coordinate back short, so such a ciphertext is made again instead.
bool hasFullLengthCoordinates(const Sm2Ciphertext &ciphertext);

// x ‖ y ‖ hash ‖ cipherText, 112 bytes; empty with `error` set when a field has another size.
QByteArray packKeyData(const Sm2Ciphertext &ciphertext, QString *error);

} // namespace zthost::cli
