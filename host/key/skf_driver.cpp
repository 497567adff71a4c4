#include "key/skf_driver.h"

#include "key/driver_layouts.h"
#include "key/out_parameter.h"

#include <dlfcn.h>

#include <cstdint>

// Calling a driver through types of the host's choosing, rather than its header's, is sound
// where every integer argument and result travels in a 64-bit register and an aggregate larger
// than 16 bytes travels in memory the caller fills: the ABIs of x86-64 and AArch64.
#if !defined(__x86_64__) && !defined(__aarch64__)
#  error "the smart-key driver adapter's calling rules are written for x86-64 and AArch64"
#endif
static_assert(sizeof(unsigned long) == 8, "an LP64 platform: `unsigned long` is 8 bytes");

// clang's function sanitizer checks that a function is called through its own type; these calls
// are across types on purpose (see above), so the check is off for the methods that make them.
#if defined(__clang__)
#  define ZT_ACROSS_DRIVER_TYPES __attribute__((no_sanitize("function")))
#else
#  define ZT_ACROSS_DRIVER_TYPES
#endif

namespace zthost {

namespace {

// The types the host calls a driver through. A ULONG or BOOL argument is a 64-bit value (a
// 4-byte parameter reads its lower half); every ULONG* and BOOL* points to an OutParameter.
namespace abi {
using Result = std::uint32_t;
using Ulong = unsigned long;
using Bool = long;
struct BlockCipherParam4
{
    unsigned char bytes[DriverLayout::BlockCipherParam::size(4)];
};
struct BlockCipherParam8
{
    unsigned char bytes[DriverLayout::BlockCipherParam::size(8)];
};
using EnumDev = Result (*)(Bool, char *, void *);
using ConnectDev = Result (*)(char *, void **);
using WithHandle = Result (*)(void *); // DisConnectDev, CloseApplication, ClearSecureState, ...
using GetDevInfo = Result (*)(void *, void *);
using EnumNames = Result (*)(void *, char *, void *); // EnumApplication, EnumContainer
using OpenByName = Result (*)(void *, char *, void **); // OpenApplication, OpenContainer
using VerifyPIN = Result (*)(void *, Ulong, char *, void *);
using ChangePIN = Result (*)(void *, Ulong, char *, char *, void *);
using UnblockPIN = Result (*)(void *, char *, char *, void *);
using GetPINInfo = Result (*)(void *, Ulong, void *, void *, void *);
using GetContainerType = Result (*)(void *, void *);
using ExportCertificate = Result (*)(void *, Bool, unsigned char *, void *);
using ImportSessionKey = Result (*)(void *, Ulong, unsigned char *, Ulong, void **);
using DecryptInit4 = Result (*)(void *, BlockCipherParam4);
using DecryptInit8 = Result (*)(void *, BlockCipherParam8);
using Decrypt = Result (*)(void *, unsigned char *, Ulong, unsigned char *, void *);
} // namespace abi

constexpr const char *kFunctionNames[kSkfFunctionCount] = {
    "SKF_EnumDev",          "SKF_ConnectDev",       "SKF_DisConnectDev",     "SKF_EnumApplication",
    "SKF_OpenApplication",  "SKF_CloseApplication", "SKF_VerifyPIN",         "SKF_ClearSecureState",
    "SKF_EnumContainer",    "SKF_OpenContainer",    "SKF_CloseContainer",    "SKF_GetContainerType",
    "SKF_ExportCertificate", "SKF_ImportSessionKey", "SKF_DecryptInit",      "SKF_Decrypt",
    "SKF_CloseHandle",      "SKF_GetPINInfo",       "SKF_ChangePIN",         "SKF_UnblockPIN",
    "SKF_GetDevInfo",
};

// A size the driver writes back: it reads the capacity first when there is a buffer, and only
// writes when there is none.
OutParameter sizeParameter(const void *buffer, const ULONG *size)
{
    return buffer ? OutParameter::inOut(*size) : OutParameter::output();
}

} // namespace

const char *skfFunctionName(SkfFunction function)
{
    return kFunctionNames[int(function)];
}

std::unique_ptr<SkfDriver> SkfDriver::load(const QString &path, DriverProfile profile,
                                           QString *error)
{
    const QByteArray file = path.toLocal8Bit();
    void *handle = dlopen(file.constData(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        const char *reason = dlerror();
        if (error)
            *error = QStringLiteral("cannot load smart-key driver %1: %2")
                         .arg(path, reason ? QString::fromLocal8Bit(reason)
                                           : QStringLiteral("unknown reason"));
        return nullptr;
    }

    std::unique_ptr<SkfDriver> driver(new SkfDriver);
    driver->m_path = path;
    driver->m_handle = handle;
    driver->m_profile = profile;
    for (int i = 0; i < kSkfFunctionCount; ++i) {
        driver->m_symbols[i] = dlsym(handle, kFunctionNames[i]);
        if (!driver->m_symbols[i] && i < kRequiredSkfFunctionCount) {
            if (error)
                *error = QStringLiteral("symbol %1 missing in smart-key driver %2")
                             .arg(QLatin1String(kFunctionNames[i]), path);
            return nullptr;
        }
    }

    // The probe: the size of the device list, asked for with no buffer, is a ULONG every driver
    // writes and none reads first, and asking has no effect on any device. Its result code does
    // not matter; a driver that writes nothing here is learnt from its next output.
    ULONG size = 0;
    driver->enumDev(true, nullptr, &size);
    if (!driver->m_widthConflict.isEmpty()) {
        if (error)
            *error = driver->m_widthConflict;
        return nullptr;
    }
    return driver;
}

SkfDriver::~SkfDriver()
{
    if (m_handle)
        dlclose(m_handle);
}

bool SkfDriver::require(SkfFunction function, QString *error) const
{
    if (has(function))
        return true;
    if (error)
        *error = missingText(function);
    return false;
}

QString SkfDriver::missingText(SkfFunction function) const
{
    return QStringLiteral("smart-key driver %1 has no %2")
        .arg(m_path, QLatin1String(skfFunctionName(function)));
}

void SkfDriver::sawUlong(int writtenBytes)
{
    if (writtenBytes == 0)
        return;
    const int expected = ulongBytesOf(m_profile) ? ulongBytesOf(m_profile) : m_seenUlongBytes;
    if (m_seenUlongBytes == 0)
        m_seenUlongBytes = writtenBytes;
    if (expected == 0 || writtenBytes == expected || !m_widthConflict.isEmpty())
        return;
    if (m_profile == DriverProfile::Auto) {
        m_widthConflict = QStringLiteral("smart-key driver %1 wrote both 4-byte and 8-byte ULONG "
                                         "values: choose the driver profile standard or wide")
                              .arg(m_path);
        return;
    }
    const DriverProfile other =
        writtenBytes == 8 ? DriverProfile::Wide : DriverProfile::Standard;
    m_widthConflict = QStringLiteral("smart-key driver %1 writes %2-byte ULONG values, but the "
                                     "driver profile is %3 (%4-byte ULONG): choose the driver "
                                     "profile %5, or auto to detect it")
                          .arg(m_path)
                          .arg(writtenBytes)
                          .arg(driverProfileName(m_profile))
                          .arg(expected)
                          .arg(driverProfileName(other));
}

ULONG SkfDriver::settle(const OutParameter &written, ULONG *value, ULONG code)
{
    sawUlong(written.writtenBytes());
    *value = written.value32();
    return code;
}

void SkfDriver::sawBool(int writtenBytes)
{
    // Recorded for diagnostics only: no structure the host exchanges holds a BOOL, so its width
    // never decides a layout.
    if (writtenBytes != 0 && m_seenBoolBytes == 0)
        m_seenBoolBytes = writtenBytes;
}

int SkfDriver::structureWidth(QString *problem) const
{
    if (!m_widthConflict.isEmpty()) {
        if (problem)
            *problem = m_widthConflict;
        return 0;
    }
    if (const int set = ulongBytesOf(m_profile))
        return set;
    if (m_seenUlongBytes)
        return m_seenUlongBytes;
    if (problem)
        *problem = QStringLiteral("the ULONG width of smart-key driver %1 is not known yet: choose "
                                  "the driver profile standard or wide")
                       .arg(m_path);
    return 0;
}

QString SkfDriver::widthDescription() const
{
    if (!m_widthConflict.isEmpty())
        return m_widthConflict;
    if (const int set = ulongBytesOf(m_profile))
        return QStringLiteral("%1-byte ULONG (profile %2)")
            .arg(set)
            .arg(driverProfileName(m_profile));
    if (m_seenUlongBytes)
        return QStringLiteral("%1-byte ULONG (detected)").arg(m_seenUlongBytes);
    return QStringLiteral("ULONG width not detected yet");
}

// The driver's `function` as the host calls it, through abi::`type`.
#define ZT_ENTRY(type, function) reinterpret_cast<abi::type>(m_symbols[int(SkfFunction::function)])

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::enumDev(bool presentOnly, LPSTR nameList, ULONG *size)
{
    OutParameter written = sizeParameter(nameList, size);
    return settle(written, size,
                  ZT_ENTRY(EnumDev, EnumDev)(presentOnly ? TRUE : FALSE, nameList,
                                             written.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::connectDev(LPSTR name, DEVHANDLE *device)
{
    return ZT_ENTRY(ConnectDev, ConnectDev)(name, device);
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::disconnectDev(DEVHANDLE device)
{
    return ZT_ENTRY(WithHandle, DisConnectDev)(device);
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::getDevInfo(DEVHANDLE device, DeviceInfo *info)
{
    if (!has(SkfFunction::GetDevInfo))
        return SAR_NOTSUPPORTYETERR;
    const int width = structureWidth(nullptr);
    if (width == 0)
        return SAR_NOTSUPPORTYETERR;
    // Room for DEVINFO in either width, whatever the driver's really is.
    unsigned char bytes[DriverLayout::DevInfo::kLargestSize] = {};
    const ULONG code = ZT_ENTRY(GetDevInfo, GetDevInfo)(device, bytes);
    if (code == SAR_OK)
        *info = decodeDevInfo(bytes, width);
    return code;
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::enumApplication(DEVHANDLE device, LPSTR nameList,
                                                        ULONG *size)
{
    OutParameter written = sizeParameter(nameList, size);
    return settle(written, size,
                  ZT_ENTRY(EnumNames, EnumApplication)(device, nameList, written.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::openApplication(DEVHANDLE device, LPSTR name,
                                                        HAPPLICATION *application)
{
    return ZT_ENTRY(OpenByName, OpenApplication)(device, name, application);
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::closeApplication(HAPPLICATION application)
{
    return ZT_ENTRY(WithHandle, CloseApplication)(application);
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::verifyPin(HAPPLICATION application, ULONG pinType,
                                                  LPSTR pin, ULONG *triesLeft)
{
    OutParameter tries = OutParameter::output();
    return settle(tries, triesLeft,
                  ZT_ENTRY(VerifyPIN, VerifyPIN)(application, abi::Ulong(pinType), pin,
                                                 tries.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::changePin(HAPPLICATION application, ULONG pinType,
                                                  LPSTR oldPin, LPSTR newPin, ULONG *triesLeft)
{
    if (!has(SkfFunction::ChangePIN))
        return SAR_NOTSUPPORTYETERR;
    OutParameter tries = OutParameter::output();
    return settle(tries, triesLeft,
                  ZT_ENTRY(ChangePIN, ChangePIN)(application, abi::Ulong(pinType), oldPin, newPin,
                                                 tries.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::unblockPin(HAPPLICATION application, LPSTR adminPin,
                                                   LPSTR newUserPin, ULONG *triesLeft)
{
    if (!has(SkfFunction::UnblockPIN))
        return SAR_NOTSUPPORTYETERR;
    OutParameter tries = OutParameter::output();
    return settle(tries, triesLeft,
                  ZT_ENTRY(UnblockPIN, UnblockPIN)(application, adminPin, newUserPin,
                                                   tries.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::getPinInfo(HAPPLICATION application, ULONG pinType,
                                                   ULONG *maxTries, ULONG *triesLeft,
                                                   bool *isDefault)
{
    if (!has(SkfFunction::GetPINInfo))
        return SAR_NOTSUPPORTYETERR;
    OutParameter most = OutParameter::output();
    OutParameter left = OutParameter::output();
    OutParameter byDefault = OutParameter::output();
    const ULONG code = ZT_ENTRY(GetPINInfo, GetPINInfo)(application, abi::Ulong(pinType),
                                                        most.address(), left.address(),
                                                        byDefault.address());
    sawUlong(most.writtenBytes());
    sawUlong(left.writtenBytes());
    sawBool(byDefault.writtenBytes());
    *maxTries = most.value32();
    *triesLeft = left.value32();
    *isDefault = byDefault.value() != 0;
    return code;
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::clearSecureState(HAPPLICATION application)
{
    return ZT_ENTRY(WithHandle, ClearSecureState)(application);
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::enumContainer(HAPPLICATION application, LPSTR nameList,
                                                      ULONG *size)
{
    OutParameter written = sizeParameter(nameList, size);
    return settle(written, size,
                  ZT_ENTRY(EnumNames, EnumContainer)(application, nameList, written.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::openContainer(HAPPLICATION application, LPSTR name,
                                                      HCONTAINER *container)
{
    return ZT_ENTRY(OpenByName, OpenContainer)(application, name, container);
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::closeContainer(HCONTAINER container)
{
    return ZT_ENTRY(WithHandle, CloseContainer)(container);
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::getContainerType(HCONTAINER container, ULONG *type)
{
    OutParameter written = OutParameter::output();
    return settle(written, type,
                  ZT_ENTRY(GetContainerType, GetContainerType)(container, written.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::exportCertificate(HCONTAINER container, bool signing,
                                                          BYTE *certificate, ULONG *length)
{
    OutParameter written = sizeParameter(certificate, length);
    return settle(written, length,
                  ZT_ENTRY(ExportCertificate, ExportCertificate)(container, signing ? TRUE : FALSE,
                                                                 certificate, written.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::importSessionKey(HCONTAINER container, ULONG algId,
                                                         const QByteArray &blob, HANDLE *key)
{
    const int width = structureWidth(nullptr);
    if (width == 0)
        return SAR_NOTSUPPORTYETERR;
    std::optional<QByteArray> laidOut = eccCipherBlobForDriver(blob, width, nullptr);
    if (!laidOut)
        return SAR_INDATALENERR;
    // The driver only reads the blob; a copy of our own keeps the caller's bytes out of reach.
    QByteArray bytes = *laidOut;
    bytes.detach();
    return ZT_ENTRY(ImportSessionKey, ImportSessionKey)(
        container, abi::Ulong(algId), reinterpret_cast<unsigned char *>(bytes.data()),
        abi::Ulong(bytes.size()), key);
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::decryptInit(HANDLE key, const BLOCKCIPHERPARAM &param)
{
    switch (structureWidth(nullptr)) {
    case 4: {
        abi::BlockCipherParam4 record;
        encodeBlockCipherParam(param, 4, record.bytes);
        return ZT_ENTRY(DecryptInit4, DecryptInit)(key, record);
    }
    case 8: {
        abi::BlockCipherParam8 record;
        encodeBlockCipherParam(param, 8, record.bytes);
        return ZT_ENTRY(DecryptInit8, DecryptInit)(key, record);
    }
    default:
        return SAR_NOTSUPPORTYETERR;
    }
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::decrypt(HANDLE key, BYTE *ciphertext,
                                                ULONG ciphertextLength, BYTE *plaintext,
                                                ULONG *plaintextLength)
{
    OutParameter written = sizeParameter(plaintext, plaintextLength);
    return settle(written, plaintextLength,
                  ZT_ENTRY(Decrypt, Decrypt)(key, ciphertext, abi::Ulong(ciphertextLength),
                                             plaintext, written.address()));
}

ZT_ACROSS_DRIVER_TYPES ULONG SkfDriver::closeHandle(HANDLE handle)
{
    return ZT_ENTRY(WithHandle, CloseHandle)(handle);
}

#undef ZT_ENTRY

} // namespace zthost
