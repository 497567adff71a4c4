// Reads bytes a driver filled (DEVINFO) and bytes from the plug-in (the session-key blob): every
// read stays inside the lengths named in key/driver_layouts.h.
#include "key/driver_structures.h"

#include "key/driver_layouts.h"

#include <cstring>

namespace zthost {

namespace {

void storeLittleEndian(unsigned char *out, std::uint64_t value, int length)
{
    for (int i = 0; i < length; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}

std::uint64_t loadLittleEndian(const unsigned char *in, int length)
{
    std::uint64_t value = 0;
    for (int i = length - 1; i >= 0; --i)
        value = value << 8 | in[i];
    return value;
}

QByteArray textField(const unsigned char *bytes, int offset, int length)
{
    const char *start = reinterpret_cast<const char *>(bytes + offset);
    const void *nul = std::memchr(start, '\0', std::size_t(length));
    return QByteArray(start, nul ? int(static_cast<const char *>(nul) - start) : length);
}

} // namespace

std::optional<QByteArray> eccCipherBlobForDriver(const QByteArray &standardBlob, int ulongBytes,
                                                 QString *error)
{
    using namespace DriverLayout::EccCipherBlob;
    constexpr int kStandardHeader = headerLength(4);
    if (ulongBytes == 4)
        return standardBlob;
    if (standardBlob.size() < kStandardHeader) {
        if (error)
            *error = QStringLiteral("ECC cipher blob is %1 bytes, shorter than its %2-byte header")
                         .arg(standardBlob.size())
                         .arg(kStandardHeader);
        return std::nullopt;
    }
    const auto *in = reinterpret_cast<const unsigned char *>(standardBlob.constData());
    const std::uint64_t cipherLen = loadLittleEndian(in + kCipherLenOffset, 4);
    const int cipherBytes = standardBlob.size() - kStandardHeader;
    QByteArray wide(headerLength(ulongBytes) + cipherBytes, '\0');
    auto *out = reinterpret_cast<unsigned char *>(wide.data());
    std::memcpy(out, in, std::size_t(kCipherLenOffset)); // X, Y and HASH do not move
    storeLittleEndian(out + kCipherLenOffset, cipherLen, ulongBytes);
    std::memcpy(out + cipherOffset(ulongBytes), in + kStandardHeader, std::size_t(cipherBytes));
    return wide;
}

void encodeBlockCipherParam(const BLOCKCIPHERPARAM &param, int ulongBytes, unsigned char *out)
{
    using namespace DriverLayout::BlockCipherParam;
    std::memset(out, 0, std::size_t(size(ulongBytes)));
    static_assert(sizeof param.IV == kIvLength, "the IV field of the host and of the driver agree");
    std::memcpy(out + kIvOffset, param.IV, std::size_t(kIvLength));
    storeLittleEndian(out + ivLenOffset(ulongBytes), param.IVLen, ulongBytes);
    storeLittleEndian(out + paddingTypeOffset(ulongBytes), param.PaddingType, ulongBytes);
    storeLittleEndian(out + feedBitLenOffset(ulongBytes), param.FeedBitLen, ulongBytes);
}

DeviceInfo decodeDevInfo(const unsigned char *bytes, int ulongBytes)
{
    using namespace DriverLayout::DevInfo;
    DeviceInfo info;
    info.versionMajor = bytes[kVersionOffset];
    info.versionMinor = bytes[kVersionOffset + 1];
    info.manufacturer = textField(bytes, kManufacturerOffset, kManufacturerLength);
    info.issuer = textField(bytes, kIssuerOffset, kIssuerLength);
    info.label = textField(bytes, kLabelOffset, kLabelLength);
    info.serialNumber = textField(bytes, kSerialNumberOffset, kSerialNumberLength);
    info.hardwareMajor = bytes[kHwVersionOffset];
    info.hardwareMinor = bytes[kHwVersionOffset + 1];
    info.firmwareMajor = bytes[kFirmwareVersionOffset];
    info.firmwareMinor = bytes[kFirmwareVersionOffset + 1];
    const auto field = [&](Ulong which) {
        return loadLittleEndian(bytes + ulongOffset(which, ulongBytes), ulongBytes);
    };
    info.algSymCap = field(Ulong::AlgSymCap);
    info.algAsymCap = field(Ulong::AlgAsymCap);
    info.algHashCap = field(Ulong::AlgHashCap);
    info.devAuthAlgId = field(Ulong::DevAuthAlgId);
    info.totalSpace = field(Ulong::TotalSpace);
    info.freeSpace = field(Ulong::FreeSpace);
    info.maxEccBufferSize = field(Ulong::MaxEccBufferSize);
    info.maxBufferSize = field(Ulong::MaxBufferSize);
    return info;
}

} // namespace zthost
