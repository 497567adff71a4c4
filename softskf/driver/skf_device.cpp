// Device entry points: enumeration, connection, device information.
#include "skf.h"

#include "device_layout.h"
#include "device_store.h"
#include "entry_guard.h"
#include "file_io.h"
#include "name_list.h"
#include "registry.h"
#include "cipher_blob.h"
#include "softskf/provision.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include <sys/statvfs.h>

namespace softskf::driver {
namespace {

constexpr char kManufacturer[] = "softskf";
constexpr char kIssuer[] = "softskf software key device";
constexpr BYTE kVersionMajor = 1;
constexpr BYTE kVersionMinor = 0;
// What the device reports as its largest single SKF_Decrypt input: a ULONG length, kept
// block-aligned.
constexpr ULONG kMaxBufferSize = 0xFFFFFFF0u;

template <std::size_t N>
void copyText(CHAR (&field)[N], const std::string &text)
{
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

ULONG clampToUlong(unsigned long long value)
{
    return static_cast<ULONG>(std::min<unsigned long long>(value, std::numeric_limits<ULONG>::max()));
}

} // namespace
} // namespace softskf::driver

using namespace softskf;
using namespace softskf::driver;

extern "C" {

ULONG DEVAPI SKF_EnumDev(BOOL bPresent, LPSTR szNameList, ULONG *pulSize)
{
    (void)bPresent;  // Every device folder is present; there is nothing to plug in.
    return guarded(__func__, [&] {
        return writeNameList(listDeviceFolders(rootFromEnvironment()), szNameList, pulSize);
    });
}

ULONG DEVAPI SKF_ConnectDev(LPSTR szName, DEVHANDLE *phDev)
{
    return guarded(__func__, [&]() -> Status {
        if (!szName)
            return nullArgument("device name");
        if (!phDev)
            return nullArgument("device handle pointer");
        *phDev = nullptr;
        const std::string name(szName, strnlen(szName, layout::kMaxNameLength + 1));
        if (name.size() > layout::kMaxNameLength)
            return Status::failure(SAR_NAMELENERR, "device name is longer than "
                                                       + std::to_string(layout::kMaxNameLength));
        if (!layout::isValidName(name))
            return Status::failure(SAR_INVALIDPARAMERR, "\"" + name + "\" is not a device name");
        DeviceSession device;
        device.name = name;
        device.dir = joinPath(rootFromEnvironment(), name);
        // A device that is not there is answered like a key pulled out between
        // enumeration and connection.
        Status status = checkDevicePresent(device.dir);
        if (!status.ok())
            return status;
        DeviceRecord record;
        status = readDeviceRecord(device.dir, &record);
        if (status.code == SAR_FILE_NOT_EXIST)
            return Status::failure(SAR_DEVICE_REMOVED, device.dir + " holds no device");
        if (!status.ok())
            return status;
        device.serialNumber = record.serialNumber;
        *phDev = registry().add(std::move(device));
        return Status::success();
    });
}

ULONG DEVAPI SKF_DisConnectDev(DEVHANDLE hDev)
{
    return guarded(__func__, [&]() -> Status {
        if (!registry().find<DeviceSession>(hDev))
            return invalidHandle("device");
        registry().removeDevice(Registry::idOf(hDev));
        return Status::success();
    });
}

ULONG DEVAPI SKF_GetDevInfo(DEVHANDLE hDev, DEVINFO *pDevInfo)
{
    return guarded(__func__, [&]() -> Status {
        const DeviceSession *device = registry().find<DeviceSession>(hDev);
        if (!device)
            return invalidHandle("device");
        if (!pDevInfo)
            return nullArgument("DEVINFO pointer");
        Status status = checkDevicePresent(device->dir);
        if (!status.ok())
            return status;
        DEVINFO info;
        std::memset(&info, 0, sizeof info);
        info.Version = {kVersionMajor, kVersionMinor};
        copyText(info.Manufacturer, kManufacturer);
        copyText(info.Issuer, kIssuer);
        copyText(info.Label, device->name);
        copyText(info.SerialNumber, device->serialNumber);
        info.HWVersion = {kVersionMajor, kVersionMinor};
        info.FirmwareVersion = {kVersionMajor, kVersionMinor};
        info.AlgSymCap = SGD_SM4_ECB;
        info.AlgAsymCap = SGD_SM2_1 | SGD_SM2_3 | SGD_RSA;
        info.AlgHashCap = SGD_SM3;
        info.DevAuthAlgId = SGD_SM4_ECB;
        struct statvfs space {};
        if (::statvfs(device->dir.c_str(), &space) == 0) {
            info.TotalSpace = clampToUlong(static_cast<unsigned long long>(space.f_blocks) * space.f_frsize);
            info.FreeSpace = clampToUlong(static_cast<unsigned long long>(space.f_bavail) * space.f_frsize);
        }
        info.MaxECCBufferSize = cipher_blob::kMaxCipherLength;
        info.MaxBufferSize = kMaxBufferSize;
        *pDevInfo = info;
        return Status::success();
    });
}

} // extern "C"
