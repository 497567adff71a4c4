#pragma once

#include <skf.h>

#include <QString>

#include <memory>

namespace zthost {

// The smart-key functions the key component calls, resolved from one driver library.
struct SkfFunctions
{
    decltype(&SKF_EnumDev) EnumDev = nullptr;
    decltype(&SKF_ConnectDev) ConnectDev = nullptr;
    decltype(&SKF_DisConnectDev) DisConnectDev = nullptr;
    decltype(&SKF_EnumApplication) EnumApplication = nullptr;
    decltype(&SKF_OpenApplication) OpenApplication = nullptr;
    decltype(&SKF_CloseApplication) CloseApplication = nullptr;
    decltype(&SKF_VerifyPIN) VerifyPIN = nullptr;
    decltype(&SKF_ClearSecureState) ClearSecureState = nullptr;
    decltype(&SKF_EnumContainer) EnumContainer = nullptr;
    decltype(&SKF_OpenContainer) OpenContainer = nullptr;
    decltype(&SKF_CloseContainer) CloseContainer = nullptr;
    decltype(&SKF_GetContainerType) GetContainerType = nullptr;
    decltype(&SKF_ExportCertificate) ExportCertificate = nullptr;
    decltype(&SKF_ImportSessionKey) ImportSessionKey = nullptr;
    decltype(&SKF_DecryptInit) DecryptInit = nullptr;
    decltype(&SKF_Decrypt) Decrypt = nullptr;
    decltype(&SKF_CloseHandle) CloseHandle = nullptr;
    // Optional: null when the driver lacks them. Only tools that report retries left or
    // manage PINs call them; SkfDriver::require names a missing one.
    decltype(&SKF_GetPINInfo) GetPINInfo = nullptr;
    decltype(&SKF_ChangePIN) ChangePIN = nullptr;
    decltype(&SKF_UnblockPIN) UnblockPIN = nullptr;
    decltype(&SKF_GetDevInfo) GetDevInfo = nullptr;
};

// A smart-key driver library loaded by path (ours or a vendor's), with its functions resolved.
// The host never links a driver: which one it talks to is a run-time choice.
//
// Opened with RTLD_NODELETE: drivers commonly start threads or register exit handlers, which
// must not outlive their code; the library stays mapped after the driver object is gone.
class SkfDriver
{
public:
    // Null with `error` set: "cannot load smart-key driver /x/libdrv.so: <reason>" or
    // "symbol SKF_DecryptInit missing in smart-key driver /x/libdrv.so".
    static std::unique_ptr<SkfDriver> load(const QString &path, QString *error);

    ~SkfDriver();
    SkfDriver(const SkfDriver &) = delete;
    SkfDriver &operator=(const SkfDriver &) = delete;

    const QString &path() const { return m_path; }
    const SkfFunctions &functions() const { return m_functions; }

    // Whether the optional function `pointer` (a member of functions()) was found; false with
    // `error` set to "smart-key driver /x/libdrv.so has no SKF_ChangePIN" otherwise.
    template <typename Fn>
    bool require(Fn pointer, const char *name, QString *error) const
    {
        if (pointer)
            return true;
        if (error)
            *error = missingText(name);
        return false;
    }

    QString missingText(const char *name) const;

private:
    SkfDriver() = default;

    QString m_path;
    void *m_handle = nullptr;
    SkfFunctions m_functions;
};

} // namespace zthost
