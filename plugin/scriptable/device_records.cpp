#include "device_records.h"

#include "envelope_structure.h"
#include "qt_compat.h"

#include <algorithm>

namespace ZtDeviceRecords {
namespace {
// Copies up to `length` bytes of `from` starting at `fromOffset`, as many as it has.
void copyRun(const QByteArray &from, ZtQtSize fromOffset, ZtQtSize length, QByteArray &to,
             ZtQtSize toOffset)
{
    const ZtQtSize available = std::max(ZtQtSize(0), std::min(length, from.size() - fromOffset));
    std::copy_n(from.constData() + std::min(fromOffset, from.size()), available,
                to.data() + toOffset);
}
} // namespace

QByteArray eccCipherBlob(const QByteArray &packedKey)
{
    using namespace ZtEnvelopeLayout;
    constexpr int kRightAligned = kBlobCoordinateField - kCoordinateLength;

    QByteArray blob(kEccCipherBlobLength, '\0');
    copyRun(packedKey, kPackedXOffset, kCoordinateLength, blob, kBlobXOffset + kRightAligned);
    // y and the HASH lie back to back in both forms, so they travel as one run.
    static_assert(kPackedHashOffset == kPackedYOffset + kCoordinateLength
                      && kBlobHashOffset == kBlobYOffset + kBlobCoordinateField,
                  "y is followed by the HASH in both forms");
    copyRun(packedKey, kPackedYOffset, kCoordinateLength + kHashLength, blob,
            kBlobYOffset + kRightAligned);
    // Only the low byte of the little-endian length is written; the rest are the zeros above.
    blob[kBlobCipherLenOffset] = char(kSessionKeyCipherLength);
    copyRun(packedKey, kPackedCipherOffset, kSessionKeyCipherLength, blob, kBlobCipherOffset);
    return blob;
}

BlockCipherParam sm4EcbDecryptParam()
{
    BlockCipherParam record{}; // zero IV, IVLen 0, FeedBitLen 0
    record[kParamPaddingOffset] = char(kPkcs5Padding);
    return record;
}

} // namespace ZtDeviceRecords
