#pragma once

#include <skf.h>

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>

namespace zthost {

// The structures the host hands a smart-key driver, or reads from one, built and read field by
// field at the offsets of key/driver_layouts.h for a driver whose ULONG is `ulongBytes` wide
// (4 or 8). Nothing here casts a structure over bytes.

// The session-key blob the plug-in passes to importSessionKey, always in the standard wrapped
// form (CipherLen 4 bytes at 160, cipher from 164), as the driver reads it. For 4 bytes it goes
// on as it is, whatever it holds: judging it is the driver's job. For 8, CipherLen is widened
// to 8 bytes and the cipher bytes move 4 on; a blob shorter than the 164-byte header cannot be
// placed and answers empty with `error` set ("ECC cipher blob is 100 bytes, shorter than its
// 164-byte header").
std::optional<QByteArray> eccCipherBlobForDriver(const QByteArray &standardBlob, int ulongBytes,
                                                 QString *error);

// BLOCKCIPHERPARAM's fields written into `out`, which holds
// DriverLayout::BlockCipherParam::size(ulongBytes) bytes.
void encodeBlockCipherParam(const BLOCKCIPHERPARAM &param, int ulongBytes, unsigned char *out);

// What SKF_GetDevInfo reports. Texts are the field's bytes up to the first NUL, in the driver's
// own encoding.
struct DeviceInfo
{
    quint8 versionMajor = 0;
    quint8 versionMinor = 0;
    QByteArray manufacturer;
    QByteArray issuer;
    QByteArray label;
    QByteArray serialNumber;
    quint8 hardwareMajor = 0;
    quint8 hardwareMinor = 0;
    quint8 firmwareMajor = 0;
    quint8 firmwareMinor = 0;
    std::uint64_t algSymCap = 0;
    std::uint64_t algAsymCap = 0;
    std::uint64_t algHashCap = 0;
    std::uint64_t devAuthAlgId = 0;
    std::uint64_t totalSpace = 0;
    std::uint64_t freeSpace = 0;
    std::uint64_t maxEccBufferSize = 0;
    std::uint64_t maxBufferSize = 0;
};

// Reads DEVINFO from `bytes`, which holds DriverLayout::DevInfo::size(ulongBytes) bytes.
DeviceInfo decodeDevInfo(const unsigned char *bytes, int ulongBytes);

} // namespace zthost
