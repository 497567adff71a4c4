// Parses untrusted bytes: records read back from a device folder.
#include "records.h"

#include "byte_view.h"
#include "pin_kdf.h"

#include <algorithm>
#include <cstring>

namespace softskf {

namespace {

constexpr std::uint32_t kFormatVersion = 1;
constexpr std::size_t kMagicLength = 4;
constexpr std::size_t kMagicOffset = 0;
constexpr std::size_t kVersionOffset = 4;

constexpr char kDeviceMagic[kMagicLength + 1] = "SKDV";
constexpr std::size_t kDeviceSerialOffset = 8;
constexpr std::size_t kDeviceRecordSize = kDeviceSerialOffset + kSerialNumberLength;

constexpr char kContainerMagic[kMagicLength + 1] = "SKCN";
constexpr std::size_t kContainerTypeOffset = 8;
constexpr std::size_t kContainerRecordSize = kContainerTypeOffset + 4;

constexpr char kPinMagic[kMagicLength + 1] = "SKPN";
constexpr std::size_t kPinIterationsOffset = 8;
constexpr std::size_t kPinMaxRetriesOffset = 12;
constexpr std::size_t kPinRemainingOffset = 16;
constexpr std::size_t kPinFlagsOffset = 20;
constexpr std::size_t kPinVerifierSaltOffset = 24;
constexpr std::size_t kPinVerifierOffset = kPinVerifierSaltOffset + kSaltLength;  // 40
constexpr std::size_t kPinSealingSaltOffset = kPinVerifierOffset + kPinVerifierLength;  // 72
constexpr std::size_t kPinRecordSize = kPinSealingSaltOffset + kSaltLength;  // 88
constexpr std::uint32_t kPinFlagDefault = 1;

static_assert(kPinRecordSize <= kMaxRecordSize && kDeviceRecordSize <= kMaxRecordSize);

std::vector<unsigned char> header(const char *magic, std::size_t size)
{
    std::vector<unsigned char> bytes(size, 0);
    storeBytes(bytes, kMagicOffset, reinterpret_cast<const unsigned char *>(magic), kMagicLength);
    storeU32le(bytes, kVersionOffset, kFormatVersion);
    return bytes;
}

Status checkHeader(const std::vector<unsigned char> &bytes, const char *magic,
                   std::size_t expectedSize, const char *what)
{
    if (bytes.size() != expectedSize)
        return Status::failure(SAR_FILEERR, std::string(what) + " is " + std::to_string(bytes.size())
                                                + " bytes, expected " + std::to_string(expectedSize));
    const ByteView view(bytes);
    std::uint32_t version = 0;
    if (std::memcmp(bytes.data() + kMagicOffset, magic, kMagicLength) != 0
        || !view.u32le(kVersionOffset, &version))
        return Status::failure(SAR_FILEERR, std::string(what) + " does not start with " + magic);
    if (version != kFormatVersion)
        return Status::failure(SAR_FILEERR, std::string(what) + " has format version "
                                                + std::to_string(version) + ", expected "
                                                + std::to_string(kFormatVersion));
    return Status::success();
}

} // namespace

std::vector<unsigned char> encodeDeviceRecord(const DeviceRecord &record)
{
    std::vector<unsigned char> bytes = header(kDeviceMagic, kDeviceRecordSize);
    const std::size_t length = std::min(record.serialNumber.size(), kSerialNumberLength);
    storeBytes(bytes, kDeviceSerialOffset,
               reinterpret_cast<const unsigned char *>(record.serialNumber.data()), length);
    return bytes;
}

Status decodeDeviceRecord(const std::vector<unsigned char> &bytes, DeviceRecord *record)
{
    Status status = checkHeader(bytes, kDeviceMagic, kDeviceRecordSize, "device record");
    if (!status.ok())
        return status;
    ByteView serial;
    ByteView(bytes).slice(kDeviceSerialOffset, kSerialNumberLength, &serial);
    std::string text;
    for (std::size_t i = 0; i < serial.size() && serial.data()[i] != 0; ++i) {
        const unsigned char c = serial.data()[i];
        if (c < 0x20 || c > 0x7e)
            return Status::failure(SAR_FILEERR, "device record: serial number byte "
                                                    + std::to_string(i) + " is not printable");
        text.push_back(static_cast<char>(c));
    }
    record->serialNumber = text;
    return Status::success();
}

std::vector<unsigned char> encodeContainerRecord(const ContainerRecord &record)
{
    std::vector<unsigned char> bytes = header(kContainerMagic, kContainerRecordSize);
    storeU32le(bytes, kContainerTypeOffset, record.type);
    return bytes;
}

Status decodeContainerRecord(const std::vector<unsigned char> &bytes, ContainerRecord *record)
{
    Status status = checkHeader(bytes, kContainerMagic, kContainerRecordSize, "container record");
    if (!status.ok())
        return status;
    std::uint32_t type = 0;
    ByteView(bytes).u32le(kContainerTypeOffset, &type);
    if (type != CONTAINER_TYPE_RSA && type != CONTAINER_TYPE_SM2)
        return Status::failure(SAR_FILEERR, "container record: type " + std::to_string(type)
                                                + " is neither RSA (1) nor SM2 (2)");
    record->type = type;
    return Status::success();
}

std::vector<unsigned char> encodePinRecord(const PinRecord &record)
{
    std::vector<unsigned char> bytes = header(kPinMagic, kPinRecordSize);
    storeU32le(bytes, kPinIterationsOffset, record.iterations);
    storeU32le(bytes, kPinMaxRetriesOffset, record.maxRetries);
    storeU32le(bytes, kPinRemainingOffset, record.remainingRetries);
    storeU32le(bytes, kPinFlagsOffset, record.isDefault ? kPinFlagDefault : 0);
    storeBytes(bytes, kPinVerifierSaltOffset, record.verifierSalt.data(), kSaltLength);
    storeBytes(bytes, kPinVerifierOffset, record.verifier.data(), kPinVerifierLength);
    storeBytes(bytes, kPinSealingSaltOffset, record.sealingSalt.data(), kSaltLength);
    return bytes;
}

Status decodePinRecord(const std::vector<unsigned char> &bytes, PinRecord *record)
{
    Status status = checkHeader(bytes, kPinMagic, kPinRecordSize, "PIN record");
    if (!status.ok())
        return status;
    const ByteView view(bytes);
    PinRecord parsed;
    std::uint32_t flags = 0;
    view.u32le(kPinIterationsOffset, &parsed.iterations);
    view.u32le(kPinMaxRetriesOffset, &parsed.maxRetries);
    view.u32le(kPinRemainingOffset, &parsed.remainingRetries);
    view.u32le(kPinFlagsOffset, &flags);
    view.copyTo(kPinVerifierSaltOffset, kSaltLength, parsed.verifierSalt.data());
    view.copyTo(kPinVerifierOffset, kPinVerifierLength, parsed.verifier.data());
    view.copyTo(kPinSealingSaltOffset, kSaltLength, parsed.sealingSalt.data());
    parsed.isDefault = (flags & kPinFlagDefault) != 0;
    if (parsed.iterations < kMinPbkdf2Iterations || parsed.iterations > kMaxPbkdf2Iterations)
        return Status::failure(SAR_FILEERR, "PIN record: " + std::to_string(parsed.iterations)
                                                + " PBKDF2 iterations, expected "
                                                + std::to_string(kMinPbkdf2Iterations) + ".."
                                                + std::to_string(kMaxPbkdf2Iterations));
    if (parsed.maxRetries == 0 || parsed.maxRetries > kMaxRetryLimit)
        return Status::failure(SAR_FILEERR, "PIN record: retry limit "
                                                + std::to_string(parsed.maxRetries) + ", expected 1.."
                                                + std::to_string(kMaxRetryLimit));
    if (parsed.remainingRetries > parsed.maxRetries)
        return Status::failure(SAR_FILEERR, "PIN record: " + std::to_string(parsed.remainingRetries)
                                                + " tries left, more than the limit of "
                                                + std::to_string(parsed.maxRetries));
    *record = parsed;
    return Status::success();
}

} // namespace softskf
