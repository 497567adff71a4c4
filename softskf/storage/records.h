#pragma once

#include "status.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace softskf {

// The small fixed-size records of a device folder. Each starts with a four-byte magic and a
// format version, then fields at the offsets named in records.cpp, integers little-endian.

struct DeviceRecord {
    std::string serialNumber;  // printable, at most kSerialNumberLength bytes
};

struct ContainerRecord {
    std::uint32_t type = 0;  // CONTAINER_TYPE_RSA or CONTAINER_TYPE_SM2
};

inline constexpr std::size_t kSaltLength = 16;
inline constexpr std::size_t kPinVerifierLength = 32;
inline constexpr std::size_t kSerialNumberLength = 24;

// One PIN: its PBKDF2-SHA256 verifier, its retry counter, and (for the user PIN) the salt of
// the key that seals the private keys.
struct PinRecord {
    std::uint32_t iterations = 0;
    std::uint32_t maxRetries = 0;
    std::uint32_t remainingRetries = 0;
    bool isDefault = false;
    std::array<unsigned char, kSaltLength> verifierSalt{};
    std::array<unsigned char, kPinVerifierLength> verifier{};
    std::array<unsigned char, kSaltLength> sealingSalt{};
};

// Bounds a record read back from disk; a bigger file is not one of ours.
inline constexpr std::size_t kMaxRecordSize = 256;
// Retry counters are one byte on real devices; 255 keeps ours in the same range.
inline constexpr std::uint32_t kMaxRetryLimit = 255;

std::vector<unsigned char> encodeDeviceRecord(const DeviceRecord &record);
std::vector<unsigned char> encodeContainerRecord(const ContainerRecord &record);
std::vector<unsigned char> encodePinRecord(const PinRecord &record);

// These parse untrusted bytes: a short, long or inconsistent record is SAR_FILEERR naming
// the field and the sizes.
Status decodeDeviceRecord(const std::vector<unsigned char> &bytes, DeviceRecord *record);
Status decodeContainerRecord(const std::vector<unsigned char> &bytes, ContainerRecord *record);
Status decodePinRecord(const std::vector<unsigned char> &bytes, PinRecord *record);

} // namespace softskf
