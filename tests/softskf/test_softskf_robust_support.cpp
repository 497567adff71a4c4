#include "test_softskf_robust_support.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace softskf_robust {

using namespace softskf_test;

ChildOutcome runInChild(const std::function<int(int reportFd)> &body)
{
    ChildOutcome outcome;
    int fds[2];
    if (::pipe(fds) != 0) {
        ADD_FAILURE() << "pipe: " << std::strerror(errno);
        return outcome;
    }
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0) {
        ADD_FAILURE() << "fork: " << std::strerror(errno);
        return outcome;
    }
    if (pid == 0) {
        ::close(fds[0]);
        const int code = body(fds[1]);
        ::close(fds[1]);
        ::_exit(code);
    }
    ::close(fds[1]);
    char buffer[4096];
    ssize_t got;
    while ((got = ::read(fds[0], buffer, sizeof buffer)) > 0)
        outcome.report.append(buffer, std::size_t(got));
    ::close(fds[0]);
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid) {
        ADD_FAILURE() << "waitpid: " << std::strerror(errno);
        return outcome;
    }
    outcome.exited = WIFEXITED(status);
    outcome.code = outcome.exited ? WEXITSTATUS(status) : 0;
    outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return outcome;
}

void report(int fd, const std::string &text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
        if (wrote <= 0)
            return;
        done += std::size_t(wrote);
    }
}

bool isKnownResultCode(ULONG code)
{
    return code == SAR_OK || (code >= SAR_FAIL && code <= SAR_REACH_MAX_CONTAINER_COUNT);
}

std::string hexCode(ULONG code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", unsigned(code));
    return text;
}

RoadInput roadFor(const std::string &root, const std::string &device)
{
    RoadInput input;
    input.device = device;
    const Bytes sessionKey = randomBytes(16);
    input.wrappedKey = wrapForCertificate(encryptionCertificate(root, device), sessionKey);
    input.plain = Bytes{'r', 'o', 'b', 'u', 's', 't', ' ', 'r', 'o', 'a', 'd'};
    input.cipher = sm4EcbEncrypt(sessionKey, input.plain);
    return input;
}

RoadResult walkRoad(const RoadInput &input)
{
    RoadResult result;
    const auto note = [&result](const char *step, ULONG code) {
        result.codes += std::string(result.codes.empty() ? "" : " ") + step + "=" + hexCode(code);
        if (!isKnownResultCode(code))
            result.allCodesKnown = false;
        return code;
    };

    std::vector<char> names(1024);
    ULONG size = ULONG(names.size());
    note("enum", SKF_EnumDev(TRUE, names.data(), &size));

    std::string name = input.device;
    DEVHANDLE device = nullptr;
    if (note("connect", SKF_ConnectDev(name.data(), &device)) != SAR_OK)
        return result;
    DEVINFO info;
    note("info", SKF_GetDevInfo(device, &info));
    char applicationName[] = "SOFTAPP";
    HAPPLICATION application = nullptr;
    if (note("app", SKF_OpenApplication(device, applicationName, &application)) == SAR_OK) {
        ULONG max = 0, left = 0;
        BOOL isDefault = FALSE;
        note("pininfo", SKF_GetPINInfo(application, USER_TYPE, &max, &left, &isDefault));
        char wrong[] = "not-the-pin";
        ULONG retries = 0;
        if (note("wrongpin", SKF_VerifyPIN(application, USER_TYPE, wrong, &retries)) == SAR_OK)
            result.wrongPinAccepted = true;
        char pin[] = "12345678";
        note("pin", SKF_VerifyPIN(application, USER_TYPE, pin, &retries));
        std::vector<char> containers(1024);
        ULONG containersSize = ULONG(containers.size());
        note("containers", SKF_EnumContainer(application, containers.data(), &containersSize));
        char containerName[] = "SM2Container";
        HCONTAINER container = nullptr;
        if (note("container", SKF_OpenContainer(application, containerName, &container)) == SAR_OK) {
            ULONG type = 0;
            note("type", SKF_GetContainerType(container, &type));
            for (const BOOL sign : {TRUE, FALSE}) {
                std::vector<BYTE> certificate(4096);
                ULONG length = ULONG(certificate.size());
                note(sign ? "signcert" : "enccert",
                     SKF_ExportCertificate(container, sign, certificate.data(), &length));
            }
            Bytes blob = input.wrappedKey;
            HANDLE key = nullptr;
            if (note("import", SKF_ImportSessionKey(container, SGD_SM4_ECB, blob.data(),
                                                    ULONG(blob.size()), &key))
                == SAR_OK) {
                if (note("decryptinit", SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING)))
                    == SAR_OK) {
                    Bytes plain;
                    if (note("decrypt", decryptAll(key, input.cipher, &plain)) == SAR_OK)
                        result.decrypted = plain == input.plain;
                }
                note("closekey", SKF_CloseHandle(key));
            }
            note("closecontainer", SKF_CloseContainer(container));
        }
        note("closeapp", SKF_CloseApplication(application));
    }
    note("disconnect", SKF_DisConnectDev(device));
    return result;
}

ULONG remainingTries(const std::string &device, ULONG *code, ULONG pinType)
{
    std::string name = device;
    char application[] = "SOFTAPP";
    DEVHANDLE handle = nullptr;
    HAPPLICATION app = nullptr;
    ULONG max = 0, left = 0;
    BOOL isDefault = FALSE;
    ULONG rv = SKF_ConnectDev(name.data(), &handle);
    if (rv == SAR_OK) {
        rv = SKF_OpenApplication(handle, application, &app);
        if (rv == SAR_OK)
            rv = SKF_GetPINInfo(app, pinType, &max, &left, &isDefault);
        SKF_DisConnectDev(handle);
    }
    if (code)
        *code = rv;
    else
        EXPECT_EQ(rv, SAR_OK) << "the counter cannot be read: " << hexCode(rv);
    return left;
}

ULONG verifyOnce(const std::string &device, const char *pin)
{
    std::string name = device, text = pin;
    char application[] = "SOFTAPP";
    DEVHANDLE handle = nullptr;
    HAPPLICATION app = nullptr;
    ULONG rv = SKF_ConnectDev(name.data(), &handle);
    if (rv != SAR_OK)
        return rv;
    rv = SKF_OpenApplication(handle, application, &app);
    ULONG retries = 0;
    if (rv == SAR_OK)
        rv = SKF_VerifyPIN(app, USER_TYPE, text.data(), &retries);
    SKF_DisConnectDev(handle);
    return rv;
}

namespace {

// Connects to the device and opens its application, runs `body` and disconnects.
ULONG onApplication(const std::string &device, const std::function<ULONG(HAPPLICATION)> &body)
{
    std::string name = device;
    char application[] = "SOFTAPP";
    DEVHANDLE handle = nullptr;
    HAPPLICATION app = nullptr;
    ULONG rv = SKF_ConnectDev(name.data(), &handle);
    if (rv != SAR_OK)
        return rv;
    rv = SKF_OpenApplication(handle, application, &app);
    if (rv == SAR_OK)
        rv = body(app);
    SKF_DisConnectDev(handle);
    return rv;
}

} // namespace

ULONG decryptWith(const RoadInput &input, const char *pin)
{
    return onApplication(input.device, [&](HAPPLICATION app) {
        std::string text = pin;
        ULONG retries = 0;
        ULONG rv = SKF_VerifyPIN(app, USER_TYPE, text.data(), &retries);
        if (rv != SAR_OK)
            return rv;
        char containerName[] = "SM2Container";
        HCONTAINER container = nullptr;
        rv = SKF_OpenContainer(app, containerName, &container);
        if (rv != SAR_OK)
            return rv;
        Bytes blob = input.wrappedKey;
        HANDLE key = nullptr;
        rv = SKF_ImportSessionKey(container, SGD_SM4_ECB, blob.data(), ULONG(blob.size()), &key);
        if (rv == SAR_OK) {
            rv = SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING));
            Bytes plain;
            if (rv == SAR_OK)
                rv = decryptAll(key, input.cipher, &plain);
            if (rv == SAR_OK && plain != input.plain)
                rv = SAR_FAIL;
            SKF_CloseHandle(key);
        }
        SKF_CloseContainer(container);
        return rv;
    });
}

ULONG changeOnce(const std::string &device, ULONG pinType, const char *oldPin, const char *newPin,
                 ULONG *retries)
{
    return onApplication(device, [&](HAPPLICATION app) {
        std::string oldText = oldPin, newText = newPin;
        ULONG left = 0;
        const ULONG rv = SKF_ChangePIN(app, pinType, oldText.data(), newText.data(), &left);
        if (retries)
            *retries = left;
        return rv;
    });
}

ULONG unblockOnce(const std::string &device, const char *adminPin, const char *newUserPin,
                  ULONG *retries)
{
    return onApplication(device, [&](HAPPLICATION app) {
        std::string adminText = adminPin, newText = newUserPin;
        ULONG left = 0;
        const ULONG rv = SKF_UnblockPIN(app, adminText.data(), newText.data(), &left);
        if (retries)
            *retries = left;
        return rv;
    });
}

bool dropFileAccessOverride()
{
    __user_cap_header_struct header{};
    header.version = _LINUX_CAPABILITY_VERSION_3;
    header.pid = 0;
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
    if (::syscall(SYS_capget, &header, data) != 0)
        return false;
    data[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
    return ::syscall(SYS_capset, &header, data) == 0;
}

} // namespace softskf_robust
