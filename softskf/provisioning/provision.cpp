#include "softskf/provision.h"

#include "certificate_maker.h"
#include "device_layout.h"
#include "device_store.h"
#include "file_io.h"
#include "openssl_ptr.h"
#include "pin_kdf.h"
#include "pin_store.h"
#include "private_key.h"
#include "records.h"
#include "sealed_key.h"

#include <openssl/pem.h>

namespace softskf {

namespace {

bool fail(std::string *error, const std::string &message)
{
    if (error)
        *error = message;
    return false;
}

bool fail(std::string *error, const Status &status)
{
    return fail(error, status.message);
}

Status checkName(const std::string &name, const char *what)
{
    if (!layout::isValidName(name))
        return Status::failure(SAR_INVALIDPARAMERR,
                               std::string(what) + " \"" + name + "\" is not 1.."
                                   + std::to_string(layout::kMaxNameLength)
                                   + " printable characters without '/' or a leading '.'");
    return Status::success();
}

std::string hex(const unsigned char *bytes, std::size_t length)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 0x0f]);
    }
    return text;
}

// The one application folder of a device.
Status findApplication(const std::string &root, const std::string &device, std::string *dir)
{
    Status status = checkName(device, "device name");
    if (!status.ok())
        return status;
    const std::string deviceDir = joinPath(root, device);
    std::vector<std::string> applications;
    status = listApplications(deviceDir, &applications);
    if (status.code == SAR_DEVICE_REMOVED || status.code == SAR_FILE_NOT_EXIST)
        return Status::failure(SAR_FILE_NOT_EXIST, "no device " + device + " under " + root);
    if (!status.ok())
        return status;
    if (applications.empty())
        return Status::failure(SAR_APPLICATION_NOT_EXISTS, "device " + device + " has no application");
    *dir = joinPath(deviceDir, applications.front());
    return Status::success();
}

Status writeKeyPair(const std::string &containerDir, std::uint32_t type, KeyUsage usage,
                    const ContainerOptions &options, const SecretBytes &sealingKey)
{
    PkeyPtr key;
    Status status = type == CONTAINER_TYPE_SM2 ? generateSm2Key(&key)
                                               : generateRsaKey(options.rsaBits, &key);
    if (!status.ok())
        return status;
    std::vector<unsigned char> certificate;
    const std::string commonName = options.commonName.empty() ? options.name : options.commonName;
    status = makeSelfSignedCertificate(key.get(), commonName, usage, &certificate);
    if (!status.ok())
        return status;
    SecretBytes pkcs8;
    status = privateKeyToPkcs8(key.get(), &pkcs8);
    if (!status.ok())
        return status;
    std::vector<unsigned char> sealed;
    status = sealPrivateKey(sealingKey, type, usage, pkcs8, &sealed);
    if (!status.ok())
        return status;
    const bool encryption = usage == KeyUsage::Encryption;
    status = writeFileAtomically(
        joinPath(containerDir, encryption ? layout::kEncryptionKey : layout::kSigningKey), sealed);
    if (!status.ok())
        return status;
    return writeFileAtomically(joinPath(containerDir, encryption ? layout::kEncryptionCertificate
                                                                 : layout::kSigningCertificate),
                               certificate);
}

Status writeContainer(const std::string &applicationDir, const ContainerOptions &options,
                      const SecretBytes &sealingKey)
{
    Status status = checkName(options.name, "container name");
    if (!status.ok())
        return status;
    const auto type = static_cast<std::uint32_t>(options.type);
    if (type != CONTAINER_TYPE_RSA && type != CONTAINER_TYPE_SM2)
        return Status::failure(SAR_INVALIDPARAMERR,
                               "container type " + std::to_string(type) + " is neither RSA nor SM2");
    const std::string dir = joinPath(applicationDir, options.name);
    status = makePrivateDirectory(dir);
    if (!status.ok())
        return status;
    ContainerRecord record;
    record.type = type;
    status = writeFileAtomically(joinPath(dir, layout::kContainerRecord),
                                 encodeContainerRecord(record));
    if (status.ok() && options.withEncryptionPair)
        status = writeKeyPair(dir, type, KeyUsage::Encryption, options, sealingKey);
    if (status.ok() && options.withSigningPair)
        status = writeKeyPair(dir, type, KeyUsage::Signing, options, sealingKey);
    if (!status.ok())
        removeTree(dir);
    return status;
}

Status writeDevice(const std::string &deviceDir, const DeviceOptions &options)
{
    const std::uint32_t iterations =
        options.pbkdf2Iterations == 0 ? kDefaultPbkdf2Iterations : options.pbkdf2Iterations;
    if (iterations > kMaxPbkdf2Iterations)
        return Status::failure(SAR_INVALIDPARAMERR, std::to_string(iterations)
                                                        + " PBKDF2 iterations, at most "
                                                        + std::to_string(kMaxPbkdf2Iterations));
    if (options.maxRetries == 0 || options.maxRetries > kMaxRetryLimit)
        return Status::failure(SAR_INVALIDPARAMERR, "retry limit " + std::to_string(options.maxRetries)
                                                        + ", expected 1.."
                                                        + std::to_string(kMaxRetryLimit));
    unsigned char serial[kSerialNumberLength / 2];
    Status status = randomBytes(serial, sizeof serial);
    if (!status.ok())
        return status;
    DeviceRecord device;
    device.serialNumber = hex(serial, sizeof serial);
    status = writeFileAtomically(joinPath(deviceDir, layout::kDeviceRecord),
                                 encodeDeviceRecord(device));
    if (!status.ok())
        return status;

    const std::string applicationDir = joinPath(deviceDir, options.applicationName);
    status = makePrivateDirectory(applicationDir);
    if (!status.ok())
        return status;
    SecretBytes kek;
    status = writeNewPinRecords(applicationDir, options.userPin, options.adminPin, iterations,
                                options.maxRetries, &kek);
    if (status.ok()) {
        // Created now so that its mode is ours, not whatever the first PIN check's umask gives.
        FileLock lock;
        status = lock.acquire(joinPath(applicationDir, layout::kApplicationLock));
    }
    if (!status.ok())
        return status;

    ContainerOptions container;
    container.name = options.containerName;
    container.type = ContainerType::Sm2;
    container.commonName = options.commonName.empty() ? options.name : options.commonName;
    return writeContainer(applicationDir, container, kek);
}

} // namespace

bool createDevice(const std::string &root, const DeviceOptions &options, std::string *error)
{
    Status status = checkName(options.name, "device name");
    if (status.ok())
        status = checkName(options.applicationName, "application name");
    if (status.ok())
        status = checkName(options.containerName, "container name");
    if (status.ok())
        status = checkPinLength(options.userPin, "user PIN");
    if (status.ok())
        status = checkPinLength(options.adminPin, "admin PIN");
    if (status.ok() && root.empty())
        status = Status::failure(SAR_INVALIDPARAMERR, "root folder path is empty");
    if (status.ok())
        status = makePrivateDirectories(root);
    if (!status.ok())
        return fail(error, status);
    const std::string deviceDir = joinPath(root, options.name);
    status = makePrivateDirectory(deviceDir);
    if (status.code == SAR_FILE_ALREADY_EXIST)
        return fail(error, "device " + options.name + " exists already under " + root);
    if (!status.ok())
        return fail(error, status);
    status = writeDevice(deviceDir, options);
    if (!status.ok()) {
        removeTree(deviceDir);
        return fail(error, status);
    }
    return true;
}

bool addContainer(const std::string &root, const std::string &device, const std::string &userPin,
                  const ContainerOptions &options, std::string *error)
{
    std::string applicationDir;
    Status status = findApplication(root, device, &applicationDir);
    SecretBytes sealingKey;
    if (status.ok())
        status = openWithUserPin(applicationDir, userPin, &sealingKey);
    if (status.ok())
        status = writeContainer(applicationDir, options, sealingKey);
    if (status.code == SAR_FILE_ALREADY_EXIST)
        return fail(error, "container " + options.name + " exists already on " + device);
    return status.ok() ? true : fail(error, status);
}

std::vector<std::string> listDevices(const std::string &root)
{
    return listDeviceFolders(root);
}

bool removeDevice(const std::string &root, const std::string &device, std::string *error)
{
    Status status = checkName(device, "device name");
    if (!status.ok())
        return fail(error, status);
    const std::string dir = joinPath(root, device);
    if (!isDirectory(dir))
        return fail(error, "no device " + device + " under " + root);
    status = removeTree(dir);
    return status.ok() ? true : fail(error, status);
}

bool getCertificate(const std::string &root, const std::string &device,
                    const std::string &container, CertificateUsage usage,
                    std::vector<unsigned char> *der, std::string *error)
{
    std::string applicationDir;
    Status status = findApplication(root, device, &applicationDir);
    if (status.ok())
        status = checkName(container, "container name");
    if (status.ok())
        status = readCertificate(joinPath(applicationDir, container),
                                 usage == CertificateUsage::Encryption ? KeyUsage::Encryption
                                                                       : KeyUsage::Signing,
                                 der);
    return status.ok() ? true : fail(error, status);
}

bool getEncryptionCertificate(const std::string &root, const std::string &device,
                              const std::string &container, std::vector<unsigned char> *der,
                              std::string *error)
{
    return getCertificate(root, device, container, CertificateUsage::Encryption, der, error);
}

bool exportEncryptionPrivateKeyPem(const std::string &root, const std::string &device,
                                   const std::string &container, const std::string &userPin,
                                   std::string *pem, std::string *error)
{
    std::string applicationDir;
    Status status = findApplication(root, device, &applicationDir);
    if (status.ok())
        status = checkName(container, "container name");
    const std::string containerDir = joinPath(applicationDir, container);
    ContainerRecord record;
    if (status.ok())
        status = readContainerRecord(containerDir, &record);
    SecretBytes sealingKey;
    if (status.ok())
        status = openWithUserPin(applicationDir, userPin, &sealingKey);
    PkeyPtr key;
    if (status.ok())
        status = loadPrivateKey(containerDir, record.type, KeyUsage::Encryption, sealingKey, &key);
    if (!status.ok())
        return fail(error, status);
    BioPtr bio(BIO_new(BIO_s_secmem()));
    if (!bio || PEM_write_bio_PKCS8PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr,
                                              nullptr)
                    != 1)
        return fail(error, "cannot write the private key as PEM");
    char *data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    pem->assign(data, static_cast<std::size_t>(length));
    return true;
}

} // namespace softskf
