// Container entry points: enumeration, opening, certificates and session-key import.
#include "skf.h"

#include "cipher_blob.h"
#include "device_layout.h"
#include "device_store.h"
#include "entry_guard.h"
#include "file_io.h"
#include "name_list.h"
#include "registry.h"
#include "sm2_unwrap.h"
#include "sm4_ecb.h"

#include <algorithm>
#include <cstring>

using namespace softskf;
using namespace softskf::driver;

namespace {

Status presentDevice(std::uint64_t deviceId)
{
    const auto *device = registry().find<DeviceSession>(Registry::handleOf(deviceId));
    if (!device)
        return invalidHandle("device");
    return checkDevicePresent(device->dir);
}

Status presentContainer(HCONTAINER handle, ContainerSession **container)
{
    *container = registry().find<ContainerSession>(handle);
    if (!*container)
        return invalidHandle("container");
    return presentDevice((*container)->device);
}

} // namespace

extern "C" {

ULONG DEVAPI SKF_EnumContainer(HAPPLICATION hApplication, LPSTR szContainerName, ULONG *pulSize)
{
    return guarded(__func__, [&]() -> Status {
        const auto *application = registry().find<ApplicationSession>(hApplication);
        if (!application)
            return invalidHandle("application");
        Status status = presentDevice(application->device);
        if (!status.ok())
            return status;
        std::vector<std::string> names;
        status = listContainers(application->dir, &names);
        if (!status.ok())
            return status;
        return writeNameList(names, szContainerName, pulSize);
    });
}

ULONG DEVAPI SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName,
                               HCONTAINER *phContainer)
{
    return guarded(__func__, [&]() -> Status {
        const auto *application = registry().find<ApplicationSession>(hApplication);
        if (!application)
            return invalidHandle("application");
        if (!szContainerName)
            return nullArgument("container name");
        if (!phContainer)
            return nullArgument("container handle pointer");
        *phContainer = nullptr;
        Status status = presentDevice(application->device);
        if (!status.ok())
            return status;
        const std::string name(szContainerName,
                               strnlen(szContainerName, layout::kMaxNameLength + 1));
        if (name.size() > layout::kMaxNameLength)
            return Status::failure(SAR_NAMELENERR, "container name is longer than "
                                                       + std::to_string(layout::kMaxNameLength));
        if (!layout::isValidName(name))
            return Status::failure(SAR_INVALIDPARAMERR, "\"" + name + "\" is not a container name");
        const std::string dir = joinPath(application->dir, name);
        if (!isDirectory(dir))
            return Status::failure(SAR_FILE_NOT_EXIST, "application " + application->name
                                                           + " has no container " + name);
        ContainerRecord record;
        status = readContainerRecord(dir, &record);
        if (!status.ok())
            return status;
        ContainerSession container;
        container.device = application->device;
        container.application = Registry::idOf(hApplication);
        container.name = name;
        container.dir = dir;
        container.type = record.type;
        *phContainer = registry().add(std::move(container));
        return Status::success();
    });
}

ULONG DEVAPI SKF_CloseContainer(HCONTAINER hContainer)
{
    return guarded(__func__, [&]() -> Status {
        if (!registry().find<ContainerSession>(hContainer))
            return invalidHandle("container");
        registry().remove(hContainer);
        return Status::success();
    });
}

ULONG DEVAPI SKF_GetContainerType(HCONTAINER hContainer, ULONG *pulContainerType)
{
    return guarded(__func__, [&]() -> Status {
        ContainerSession *container = nullptr;
        Status status = presentContainer(hContainer, &container);
        if (!status.ok())
            return status;
        if (!pulContainerType)
            return nullArgument("container type pointer");
        *pulContainerType = container->type;
        return Status::success();
    });
}

ULONG DEVAPI SKF_ExportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert,
                                   ULONG *pulCertLen)
{
    return guarded(__func__, [&]() -> Status {
        ContainerSession *container = nullptr;
        Status status = presentContainer(hContainer, &container);
        if (!status.ok())
            return status;
        if (!pulCertLen)
            return nullArgument("certificate length pointer");
        std::vector<unsigned char> der;
        status = readCertificate(container->dir,
                                 bSignFlag ? KeyUsage::Signing : KeyUsage::Encryption, &der);
        if (!status.ok())
            return status;
        return writeBytes(der, pbCert, pulCertLen);
    });
}

ULONG DEVAPI SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, BYTE *pbWrapedData,
                                  ULONG ulWrapedLen, HANDLE *phKey)
{
    return guarded(__func__, [&]() -> Status {
        ContainerSession *container = nullptr;
        Status status = presentContainer(hContainer, &container);
        if (!status.ok())
            return status;
        if (!pbWrapedData)
            return nullArgument("wrapped key");
        if (!phKey)
            return nullArgument("key handle pointer");
        *phKey = nullptr;
        if (ulAlgId != SGD_SM4_ECB)
            return Status::failure(SAR_NOTSUPPORTYETERR, "session key algorithm "
                                                             + std::to_string(ulAlgId)
                                                             + " is not supported, only SM4-ECB ("
                                                             + std::to_string(SGD_SM4_ECB) + ")");
        if (container->type != CONTAINER_TYPE_SM2)
            return Status::failure(SAR_NOTSUPPORTYETERR,
                                   "container " + container->name
                                       + " is not an SM2 container; RSA-wrapped keys are not supported");
        auto *application =
            registry().find<ApplicationSession>(Registry::handleOf(container->application));
        if (!application)
            return invalidHandle("application");
        if (!application->userLoggedIn)
            return Status::failure(SAR_USER_NOT_LOGGED_IN,
                                   "the user PIN must be verified before the private key is used");

        std::vector<unsigned char> der;
        status = cipher_blob::toSm2Der(pbWrapedData, ulWrapedLen, &der);
        if (!status.ok())
            return status;
        // The key is unsealed once per login and kept with it.
        auto unsealed = application->unsealedEncryptionKeys.find(container->dir);
        if (unsealed == application->unsealedEncryptionKeys.end()) {
            PkeyPtr key;
            status = loadPrivateKey(container->dir, container->type, KeyUsage::Encryption,
                                    application->sealingKey, &key);
            if (!status.ok())
                return status;
            unsealed = application->unsealedEncryptionKeys.emplace(container->dir, std::move(key)).first;
        }
        SecretBytes plain;
        status = sm2Decrypt(unsealed->second.get(), der, &plain);
        if (!status.ok())
            return status;
        if (plain.size() != kSm4KeyLength)
            return Status::failure(SAR_INDATAERR, "unwrapped key is " + std::to_string(plain.size())
                                                      + " bytes, an SM4 key is 16");
        SessionKey sessionKey;
        sessionKey.device = container->device;
        sessionKey.key = std::move(plain);
        *phKey = registry().add(std::move(sessionKey));
        return Status::success();
    });
}

} // extern "C"
