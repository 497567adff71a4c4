// Session-key entry points: decryption and closing.
#include "skf.h"

#include "device_store.h"
#include "entry_guard.h"
#include "registry.h"
#include "sm4_ecb.h"

using namespace softskf;
using namespace softskf::driver;

namespace {

Status presentKey(HANDLE handle, SessionKey **key)
{
    *key = registry().find<SessionKey>(handle);
    if (!*key)
        return invalidHandle("session key");
    const auto *device = registry().find<DeviceSession>(Registry::handleOf((*key)->device));
    if (!device)
        return invalidHandle("device");
    return checkDevicePresent(device->dir);
}

} // namespace

extern "C" {

ULONG DEVAPI SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam)
{
    return guarded(__func__, [&]() -> Status {
        SessionKey *key = nullptr;
        Status status = presentKey(hKey, &key);
        if (!status.ok())
            return status;
        // ECB has no IV or feedback: IVLen and FeedBitLen are accepted and ignored.
        if (DecryptParam.PaddingType == SKF_NO_PADDING)
            key->padding = Padding::None;
        else if (DecryptParam.PaddingType == SKF_PKCS7_PADDING)
            key->padding = Padding::Pkcs7;
        else
            return Status::failure(SAR_INVALIDPARAMERR,
                                   "padding type " + std::to_string(DecryptParam.PaddingType)
                                       + " is neither none (0) nor PKCS#7 (1)");
        key->decryptReady = true;
        return Status::success();
    });
}

ULONG DEVAPI SKF_Decrypt(HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen, BYTE *pbData,
                         ULONG *pulDataLen)
{
    return guarded(__func__, [&]() -> Status {
        SessionKey *key = nullptr;
        Status status = presentKey(hKey, &key);
        if (!status.ok())
            return status;
        if (!key->decryptReady)
            return Status::failure(SAR_NOTINITIALIZEERR, "SKF_DecryptInit has not been called");
        if (!pbEncryptedData)
            return nullArgument("ciphertext");
        if (!pulDataLen)
            return nullArgument("plaintext length pointer");
        if (ulEncryptedLen == 0 || ulEncryptedLen % kSm4BlockLength != 0)
            return Status::failure(SAR_INDATALENERR,
                                   "ciphertext is " + std::to_string(ulEncryptedLen)
                                       + " bytes, expected a non-zero multiple of 16");
        if (!pbData) {
            // A size query: the plaintext is never longer than the ciphertext.
            *pulDataLen = ulEncryptedLen;
            return Status::success();
        }
        std::size_t length = 0;
        status = sm4EcbDecrypt(key->key, key->padding, pbEncryptedData, ulEncryptedLen, pbData,
                               *pulDataLen, &length);
        if (status.ok() || status.code == SAR_BUFFER_TOO_SMALL)
            *pulDataLen = static_cast<ULONG>(length);
        // A single-part decryption ends the operation, unless the caller only has to come
        // back with a bigger buffer.
        if (status.code != SAR_BUFFER_TOO_SMALL)
            key->decryptReady = false;
        return status;
    });
}

ULONG DEVAPI SKF_CloseHandle(HANDLE hHandle)
{
    return guarded(__func__, [&]() -> Status {
        if (!registry().find<SessionKey>(hHandle))
            return invalidHandle("session key");
        registry().remove(hHandle);
        return Status::success();
    });
}

} // extern "C"
