#pragma once

#include "openssl_ptr.h"
#include "records.h"
#include "sealed_key.h"
#include "secret_bytes.h"
#include "status.h"

#include <cstdint>
#include <string>
#include <vector>

namespace softskf {

// Reading the parts of a device folder (see device_layout.h). Each answers a SAR_* code:
// SAR_DEVICE_REMOVED when the device folder itself has gone.

Status readDeviceRecord(const std::string &deviceDir, DeviceRecord *record);

// The device's applications (its sub-folders), in name order.
Status listApplications(const std::string &deviceDir, std::vector<std::string> *names);
// The application's containers, in name order.
Status listContainers(const std::string &applicationDir, std::vector<std::string> *names);

Status readContainerRecord(const std::string &containerDir, ContainerRecord *record);

// DER of the certificate; SAR_CERTNOTFOUNTERR when the container holds none for that usage.
Status readCertificate(const std::string &containerDir, KeyUsage usage,
                       std::vector<unsigned char> *der);

// The private key for that usage, unsealed with the KEK opened by the user PIN;
// SAR_KEYNOTFOUNTERR when the container holds none.
Status loadPrivateKey(const std::string &containerDir, std::uint32_t containerType, KeyUsage usage,
                      const SecretBytes &sealingKey, PkeyPtr *key);

// SAR_OK while the folder exists, SAR_DEVICE_REMOVED once it has gone.
Status checkDevicePresent(const std::string &deviceDir);

} // namespace softskf

namespace softskf {

// The devices of a root: sub-folders with a valid name that hold a device record, in name
// order. A missing root has no devices.
std::vector<std::string> listDeviceFolders(const std::string &root);

} // namespace softskf
