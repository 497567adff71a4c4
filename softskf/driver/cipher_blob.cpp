// Parses untrusted bytes: the wrapped session key a caller hands to SKF_ImportSessionKey.
#include "cipher_blob.h"

#include "byte_view.h"
#include "der_writer.h"

#include <string>

namespace softskf::cipher_blob {

Status toSm2Der(const unsigned char *blob, std::size_t size, std::vector<unsigned char> *der)
{
    const ByteView view(blob, size);
    std::uint64_t cipherLength = 0;
    if (size < kHeaderLength || !view.uintLe(kCipherLengthOffset, kCipherLengthLength, &cipherLength))
        return Status::failure(SAR_INDATALENERR,
                               "blob is " + std::to_string(size) + " bytes, expected at least "
                                   + std::to_string(kHeaderLength + 1));
    if (cipherLength == 0 || cipherLength > kMaxCipherLength)
        return Status::failure(SAR_INDATALENERR, "blob says CipherLen " + std::to_string(cipherLength)
                                                     + ", expected 1.."
                                                     + std::to_string(kMaxCipherLength));
    ByteView x, y, hash, cipher;
    if (!view.slice(kCipherOffset, cipherLength, &cipher))
        return Status::failure(SAR_INDATALENERR,
                               "blob is " + std::to_string(size) + " bytes, expected at least "
                                   + std::to_string(kHeaderLength + std::size_t(cipherLength))
                                   + " for CipherLen " + std::to_string(cipherLength));
    ByteView xPadding, yPadding;
    view.slice(kXOffset, kPaddingLength, &xPadding);
    view.slice(kYOffset, kPaddingLength, &yPadding);
    if (!xPadding.allZero() || !yPadding.allZero())
        return Status::failure(SAR_INDATAERR,
                               "blob coordinates are wider than 256 bits: the left "
                                   + std::to_string(kPaddingLength)
                                   + " bytes of each 64-byte field must be zero");
    view.slice(kXOffset + kPaddingLength, kCurveCoordinateLength, &x);
    view.slice(kYOffset + kPaddingLength, kCurveCoordinateLength, &y);
    view.slice(kHashOffset, kHashLength, &hash);

    std::vector<unsigned char> contents;
    contents.reserve(2 * (kCurveCoordinateLength + 3) + kHashLength + 2 + cipherLength + 4);
    der::appendUnsignedInteger(contents, x.data(), x.size());
    der::appendUnsignedInteger(contents, y.data(), y.size());
    der::appendOctetString(contents, hash.data(), hash.size());
    der::appendOctetString(contents, cipher.data(), cipher.size());
    *der = der::sequence(contents);
    return Status::success();
}

} // namespace softskf::cipher_blob
