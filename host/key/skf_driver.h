#pragma once

#include "key/driver_profile.h"
#include "key/driver_structures.h"

#include <skf.h>

#include <QByteArray>
#include <QString>

#include <memory>

namespace zthost {

class OutParameter;

// The standard functions the host may call, by name. The first seventeen are required: a driver
// without one of them does not load. The rest are optional, found when the driver has them.
enum class SkfFunction {
    EnumDev,
    ConnectDev,
    DisConnectDev,
    EnumApplication,
    OpenApplication,
    CloseApplication,
    VerifyPIN,
    ClearSecureState,
    EnumContainer,
    OpenContainer,
    CloseContainer,
    GetContainerType,
    ExportCertificate,
    ImportSessionKey,
    DecryptInit,
    Decrypt,
    CloseHandle,
    // Optional: only the tools that show tries left, manage PINs or describe a device use them.
    GetPINInfo,
    ChangePIN,
    UnblockPIN,
    GetDevInfo,
};
inline constexpr int kSkfFunctionCount = int(SkfFunction::GetDevInfo) + 1;
inline constexpr int kRequiredSkfFunctionCount = int(SkfFunction::CloseHandle) + 1;

// "SKF_EnumDev", ...
const char *skfFunctionName(SkfFunction function);

// A smart-key driver library loaded by path (ours or a vendor's), and the host's one adapter to
// it: every call the host makes into a driver goes through a method of this class, which is
// written so that a driver built from a header that differs from the standard in the ways
// vendors' headers do is still called correctly, or refused, but never lets it write past the
// host's memory:
//
// - ULONG and BOOL may be 4 bytes (the standard) or 8 (`unsigned long`, `long` on 64-bit Linux).
//   Every ULONG* and BOOL* the driver writes points to 8 bytes (key/out_parameter.h), and its
//   value reads right in both widths. ULONG and BOOL arguments by value are passed as 64-bit
//   values: on x86-64 and AArch64 they travel in a 64-bit register, of which a 4-byte parameter
//   reads the lower half and an 8-byte one all. Result codes are read as 32 bits, the lower
//   half of the result register, which holds every code in both widths.
// - Structures with ULONG fields (the session-key blob, BLOCKCIPHERPARAM, DEVINFO) are laid out
//   for the driver's width (key/driver_structures.h). That width comes from the driver profile:
//   set, or under DriverProfile::Auto detected from the first ULONG the driver is seen writing
//   into a sentinel-filled output (SKF_EnumDev's size, asked for at load). A driver seen writing
//   the other width than its set profile says is refused at load; seen later, it is reported by
//   structureWidth() and no structure is handed over.
// - A missing optional function is answered SAR_NOTSUPPORTYETERR by its method; has() and
//   require() tell beforehand, by name.
//
// Methods take and give the host's own types (32-bit ULONG, bool). Sizes and counts a driver
// writes past 32 bits read as the largest ULONG, which every caller's bound refuses.
//
// Opened with RTLD_NODELETE: drivers commonly start threads or register exit handlers, which
// must not outlive their code; the library stays mapped after the driver object is gone.
class SkfDriver
{
public:
    // Null with `error` set: "cannot load smart-key driver /x/libdrv.so: <reason>", "symbol
    // SKF_DecryptInit missing in smart-key driver /x/libdrv.so", or, for a set profile the
    // driver is seen to contradict, "smart-key driver /x/libdrv.so writes 8-byte ULONG values,
    // but the driver profile is standard (4-byte ULONG): choose the driver profile wide, or auto
    // to detect it".
    static std::unique_ptr<SkfDriver> load(const QString &path, DriverProfile profile,
                                           QString *error);

    ~SkfDriver();
    SkfDriver(const SkfDriver &) = delete;
    SkfDriver &operator=(const SkfDriver &) = delete;

    const QString &path() const { return m_path; }
    DriverProfile profile() const { return m_profile; }

    // Whether the driver exports `function`.
    bool has(SkfFunction function) const { return m_symbols[int(function)] != nullptr; }
    // has(), with `error` set to "smart-key driver /x/libdrv.so has no SKF_ChangePIN" when not.
    bool require(SkfFunction function, QString *error) const;
    QString missingText(SkfFunction function) const;

    // The driver's ULONG width in bytes (4 or 8) for the structures handed to it: the set
    // profile's, else the detected one. 0 with `problem` set when it is not known yet ("the
    // ULONG width of smart-key driver /x is not known yet: choose the driver profile standard or
    // wide") or the driver was seen writing another width than the profile says.
    int structureWidth(QString *problem) const;
    // The width of ULONG the driver was seen writing: 4, 8, or 0 before any; the same for BOOL.
    int seenUlongBytes() const { return m_seenUlongBytes; }
    int seenBoolBytes() const { return m_seenBoolBytes; }
    // For the host log: "8-byte ULONG (detected)", "4-byte ULONG (profile standard)",
    // "ULONG width not detected yet".
    QString widthDescription() const;

    ULONG enumDev(bool presentOnly, LPSTR nameList, ULONG *size);
    ULONG connectDev(LPSTR name, DEVHANDLE *device);
    ULONG disconnectDev(DEVHANDLE device);
    // Optional. SAR_NOTSUPPORTYETERR too when the driver's width is not known.
    ULONG getDevInfo(DEVHANDLE device, DeviceInfo *info);
    ULONG enumApplication(DEVHANDLE device, LPSTR nameList, ULONG *size);
    ULONG openApplication(DEVHANDLE device, LPSTR name, HAPPLICATION *application);
    ULONG closeApplication(HAPPLICATION application);
    ULONG verifyPin(HAPPLICATION application, ULONG pinType, LPSTR pin, ULONG *triesLeft);
    // Optional.
    ULONG changePin(HAPPLICATION application, ULONG pinType, LPSTR oldPin, LPSTR newPin,
                    ULONG *triesLeft);
    // Optional.
    ULONG unblockPin(HAPPLICATION application, LPSTR adminPin, LPSTR newUserPin,
                     ULONG *triesLeft);
    // Optional.
    ULONG getPinInfo(HAPPLICATION application, ULONG pinType, ULONG *maxTries, ULONG *triesLeft,
                     bool *isDefault);
    ULONG clearSecureState(HAPPLICATION application);
    ULONG enumContainer(HAPPLICATION application, LPSTR nameList, ULONG *size);
    ULONG openContainer(HAPPLICATION application, LPSTR name, HCONTAINER *container);
    ULONG closeContainer(HCONTAINER container);
    ULONG getContainerType(HCONTAINER container, ULONG *type);
    ULONG exportCertificate(HCONTAINER container, bool signing, BYTE *certificate, ULONG *length);
    // `blob` in the standard wrapped form, as the plug-in makes it; laid out for the driver here.
    // SAR_NOTSUPPORTYETERR when the width is not known, SAR_INDATALENERR when the blob cannot be
    // laid out (see eccCipherBlobForDriver).
    ULONG importSessionKey(HCONTAINER container, ULONG algId, const QByteArray &blob, HANDLE *key);
    // SAR_NOTSUPPORTYETERR when the width is not known.
    ULONG decryptInit(HANDLE key, const BLOCKCIPHERPARAM &param);
    ULONG decrypt(HANDLE key, BYTE *ciphertext, ULONG ciphertextLength, BYTE *plaintext,
                  ULONG *plaintextLength);
    ULONG closeHandle(HANDLE handle);

private:
    SkfDriver() = default;
    // Learns the widths from what the driver wrote; a contradiction of the known width is kept.
    void sawUlong(int writtenBytes);
    void sawBool(int writtenBytes);
    // After a call that wrote the ULONG `written`: learns its width, gives the caller its value
    // in `value`, and answers `code`.
    ULONG settle(const OutParameter &written, ULONG *value, ULONG code);

    QString m_path;
    void *m_handle = nullptr;
    void *m_symbols[kSkfFunctionCount] = {};
    DriverProfile m_profile = DriverProfile::Auto;
    int m_seenUlongBytes = 0;
    int m_seenBoolBytes = 0;
    QString m_widthConflict;
};

} // namespace zthost
