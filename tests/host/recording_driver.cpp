// Every function the key component resolves, passed on to the software device.
#include "recording_driver.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

namespace {

struct Recorder
{
    ZtRecordedCalls calls{};
    std::set<DEVHANDLE> connected;
    std::string failingFunction;
    ULONG failure = SAR_OK;
};

// A process that loads this driver by path (a real zthost in the command-line tests) arms its
// failure through the environment: ZT_RECORDING_DRIVER_FAIL="SKF_Decrypt=0x0A000023" makes
// the first call of that function answer that code.
Recorder armedFromEnvironment()
{
    Recorder r;
    const char *armed = std::getenv("ZT_RECORDING_DRIVER_FAIL");
    const char *equals = armed ? std::strchr(armed, '=') : nullptr;
    if (equals) {
        r.failingFunction.assign(armed, size_t(equals - armed));
        r.failure = ULONG(std::strtoul(equals + 1, nullptr, 0));
    }
    return r;
}

Recorder &recorder()
{
    static Recorder instance = armedFromEnvironment();
    return instance;
}

void *softwareDevice()
{
    static void *const handle = ::dlopen(ZT_SOFTSKF_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
    return handle;
}

// The armed failure when `function` is the one armed; SAR_OK otherwise.
ULONG takeFailure(const char *function)
{
    Recorder &r = recorder();
    if (r.failure == SAR_OK || r.failingFunction != function)
        return SAR_OK;
    const ULONG code = r.failure;
    r.failure = SAR_OK;
    r.failingFunction.clear();
    return code;
}

template <typename Fn, typename... Args>
ULONG forward(Fn, const char *function, Args... args)
{
    if (const ULONG failure = takeFailure(function))
        return failure;
    void *const device = softwareDevice();
    const auto real = device ? reinterpret_cast<Fn>(::dlsym(device, function)) : nullptr;
    return real ? real(args...) : SAR_FAIL;
}

} // namespace

#define ZT_FORWARD(function, ...) forward(&function, #function, __VA_ARGS__)

extern "C" {

ZtRecordedCalls zt_recorded_calls(void)
{
    return recorder().calls;
}

void zt_forget_recorded_calls(void)
{
    recorder() = Recorder();
}

void zt_fail_next_call(const char *function, ULONG code)
{
    recorder().failingFunction = function;
    recorder().failure = code;
}

ULONG DEVAPI SKF_EnumDev(BOOL bPresent, LPSTR szNameList, ULONG *pulSize)
{
    return ZT_FORWARD(SKF_EnumDev, bPresent, szNameList, pulSize);
}

ULONG DEVAPI SKF_ConnectDev(LPSTR szName, DEVHANDLE *phDev)
{
    const ULONG code = ZT_FORWARD(SKF_ConnectDev, szName, phDev);
    if (code == SAR_OK && phDev && *phDev) {
        ++recorder().calls.connects;
        recorder().connected.insert(*phDev);
    }
    return code;
}

ULONG DEVAPI SKF_DisConnectDev(DEVHANDLE hDev)
{
    if (recorder().connected.erase(hDev))
        ++recorder().calls.disconnects;
    return ZT_FORWARD(SKF_DisConnectDev, hDev);
}

ULONG DEVAPI SKF_EnumApplication(DEVHANDLE hDev, LPSTR szAppName, ULONG *pulSize)
{
    return ZT_FORWARD(SKF_EnumApplication, hDev, szAppName, pulSize);
}

ULONG DEVAPI SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION *phApplication)
{
    return ZT_FORWARD(SKF_OpenApplication, hDev, szAppName, phApplication);
}

ULONG DEVAPI SKF_CloseApplication(HAPPLICATION hApplication)
{
    return ZT_FORWARD(SKF_CloseApplication, hApplication);
}

ULONG DEVAPI SKF_VerifyPIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szPIN,
                           ULONG *pulRetryCount)
{
    recorder().calls.pinAddress = szPIN;
    recorder().calls.pinLength = szPIN ? std::strlen(szPIN) : 0;
    return ZT_FORWARD(SKF_VerifyPIN, hApplication, ulPINType, szPIN, pulRetryCount);
}

ULONG DEVAPI SKF_GetPINInfo(HAPPLICATION hApplication, ULONG ulPINType, ULONG *pulMaxRetryCount,
                            ULONG *pulRemainRetryCount, BOOL *pbDefaultPin)
{
    return ZT_FORWARD(SKF_GetPINInfo, hApplication, ulPINType, pulMaxRetryCount,
                      pulRemainRetryCount, pbDefaultPin);
}

ULONG DEVAPI SKF_ClearSecureState(HAPPLICATION hApplication)
{
    return ZT_FORWARD(SKF_ClearSecureState, hApplication);
}

ULONG DEVAPI SKF_EnumContainer(HAPPLICATION hApplication, LPSTR szContainerName, ULONG *pulSize)
{
    return ZT_FORWARD(SKF_EnumContainer, hApplication, szContainerName, pulSize);
}

ULONG DEVAPI SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName,
                               HCONTAINER *phContainer)
{
    return ZT_FORWARD(SKF_OpenContainer, hApplication, szContainerName, phContainer);
}

ULONG DEVAPI SKF_CloseContainer(HCONTAINER hContainer)
{
    return ZT_FORWARD(SKF_CloseContainer, hContainer);
}

ULONG DEVAPI SKF_GetContainerType(HCONTAINER hContainer, ULONG *pulContainerType)
{
    return ZT_FORWARD(SKF_GetContainerType, hContainer, pulContainerType);
}

ULONG DEVAPI SKF_ExportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert,
                                   ULONG *pulCertLen)
{
    return ZT_FORWARD(SKF_ExportCertificate, hContainer, bSignFlag, pbCert, pulCertLen);
}

ULONG DEVAPI SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, BYTE *pbWrapedData,
                                  ULONG ulWrapedLen, HANDLE *phKey)
{
    return ZT_FORWARD(SKF_ImportSessionKey, hContainer, ulAlgId, pbWrapedData, ulWrapedLen, phKey);
}

ULONG DEVAPI SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam)
{
    return ZT_FORWARD(SKF_DecryptInit, hKey, DecryptParam);
}

ULONG DEVAPI SKF_Decrypt(HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen,
                         BYTE *pbData, ULONG *pulDataLen)
{
    return ZT_FORWARD(SKF_Decrypt, hKey, pbEncryptedData, ulEncryptedLen, pbData, pulDataLen);
}

ULONG DEVAPI SKF_CloseHandle(HANDLE hHandle)
{
    return ZT_FORWARD(SKF_CloseHandle, hHandle);
}

} // extern "C"
