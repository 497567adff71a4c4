#include "device_store.h"

#include "device_layout.h"
#include "file_io.h"
#include "private_key.h"

#include <openssl/err.h>
#include <openssl/x509.h>

namespace softskf {

namespace {

// A file that cannot be found because its device folder went away answers
// SAR_DEVICE_REMOVED, like every other call on a removed device.
Status presentOr(const std::string &deviceDir, Status status)
{
    if (!status.ok() && !isDirectory(deviceDir))
        return Status::failure(SAR_DEVICE_REMOVED, deviceDir + " does not exist any more");
    return status;
}

std::string parentOf(const std::string &path, int levels)
{
    std::string result = path;
    for (int i = 0; i < levels; ++i) {
        const auto slash = result.find_last_of('/');
        if (slash == std::string::npos || slash == 0)
            return result;
        result.erase(slash);
    }
    return result;
}

// A container folder is <device>/<application>/<container>.
std::string deviceOfContainer(const std::string &containerDir)
{
    return parentOf(containerDir, 2);
}

// Callers take the exported bytes as a certificate; a damaged file is reported, not handed on.
bool isWholeCertificate(const std::vector<unsigned char> &der)
{
    const unsigned char *cursor = der.data();
    X509Ptr certificate(d2i_X509(nullptr, &cursor, static_cast<long>(der.size())));
    ERR_clear_error();
    return certificate && cursor == der.data() + der.size();
}

} // namespace

Status checkDevicePresent(const std::string &deviceDir)
{
    if (!isDirectory(deviceDir))
        return Status::failure(SAR_DEVICE_REMOVED, deviceDir + " does not exist any more");
    return Status::success();
}

Status readDeviceRecord(const std::string &deviceDir, DeviceRecord *record)
{
    const std::string path = joinPath(deviceDir, layout::kDeviceRecord);
    std::vector<unsigned char> bytes;
    Status status = readFile(path, kMaxRecordSize, &bytes);
    if (status.ok())
        status = decodeDeviceRecord(bytes, record);
    if (!status.ok() && status.code != SAR_FILE_NOT_EXIST)
        status.message = path + ": " + status.message;
    return presentOr(deviceDir, status);
}

Status listApplications(const std::string &deviceDir, std::vector<std::string> *names)
{
    Status status = listSubdirectories(deviceDir, names);
    if (status.ok()) {
        std::vector<std::string> valid;
        for (const auto &name : *names)
            if (layout::isValidName(name))
                valid.push_back(name);
        *names = std::move(valid);
    }
    return presentOr(deviceDir, status);
}

Status listContainers(const std::string &applicationDir, std::vector<std::string> *names)
{
    Status status = listSubdirectories(applicationDir, names);
    if (status.ok()) {
        std::vector<std::string> valid;
        for (const auto &name : *names)
            if (layout::isValidName(name))
                valid.push_back(name);
        *names = std::move(valid);
    }
    return presentOr(parentOf(applicationDir, 1), status);
}

Status readContainerRecord(const std::string &containerDir, ContainerRecord *record)
{
    const std::string path = joinPath(containerDir, layout::kContainerRecord);
    std::vector<unsigned char> bytes;
    Status status = readFile(path, kMaxRecordSize, &bytes);
    if (status.ok()) {
        status = decodeContainerRecord(bytes, record);
        if (!status.ok())
            status.message = path + ": " + status.message;
    }
    return presentOr(deviceOfContainer(containerDir), status);
}

Status readCertificate(const std::string &containerDir, KeyUsage usage,
                       std::vector<unsigned char> *der)
{
    const std::string path = joinPath(containerDir, usage == KeyUsage::Encryption
                                                        ? layout::kEncryptionCertificate
                                                        : layout::kSigningCertificate);
    Status status = readFile(path, layout::kMaxCertificateSize, der);
    if (status.code == SAR_FILE_NOT_EXIST)
        status = Status::failure(SAR_CERTNOTFOUNTERR, "no certificate at " + path);
    if (status.ok() && !isWholeCertificate(*der))
        status = Status::failure(SAR_FILEERR, path + " (" + std::to_string(der->size())
                                                  + " bytes) is not one DER certificate");
    return presentOr(deviceOfContainer(containerDir), status);
}

Status loadPrivateKey(const std::string &containerDir, std::uint32_t containerType, KeyUsage usage,
                      const SecretBytes &sealingKey, PkeyPtr *key)
{
    const std::string path = joinPath(containerDir, usage == KeyUsage::Encryption
                                                        ? layout::kEncryptionKey
                                                        : layout::kSigningKey);
    std::vector<unsigned char> sealed;
    Status status = readFile(path, kMaxSealedKeySize, &sealed);
    if (status.code == SAR_FILE_NOT_EXIST)
        status = Status::failure(SAR_KEYNOTFOUNTERR, "no private key at " + path);
    SecretBytes pkcs8;
    if (status.ok())
        status = unsealPrivateKey(sealingKey, containerType, usage, sealed, &pkcs8);
    if (status.ok())
        status = privateKeyFromPkcs8(pkcs8, containerType, key);
    if (!status.ok() && status.message.find(path) == std::string::npos)
        status.message = path + ": " + status.message;
    return presentOr(deviceOfContainer(containerDir), status);
}

} // namespace softskf

namespace softskf {

std::vector<std::string> listDeviceFolders(const std::string &root)
{
    std::vector<std::string> names;
    if (!listSubdirectories(root, &names).ok())
        return {};
    std::vector<std::string> devices;
    for (const auto &name : names) {
        if (layout::isValidName(name)
            && isRegularFile(joinPath(joinPath(root, name), layout::kDeviceRecord)))
            devices.push_back(name);
    }
    return devices;
}

} // namespace softskf
