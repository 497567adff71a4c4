#pragma once

// Provisioning of software key devices: creating, listing and removing the device folders
// that the smart-key driver (libztsoftskf.so) serves. This is the software device's own API,
// for tests and tools; callers of the driver use only skf.h.
//
// Every function that can fail returns false and, when `error` is not null, stores a
// sentence saying what was wrong. Nothing here throws.

#include <string>
#include <vector>

namespace softskf {

// ${XDG_DATA_HOME:-$HOME/.local/share}/softskf
std::string defaultRoot();
// $SOFTSKF_ROOT when set and not empty, else defaultRoot(). The driver reads the root the
// same way at each SKF_EnumDev and SKF_ConnectDev.
std::string rootFromEnvironment();

enum class ContainerType : unsigned { Rsa = 1, Sm2 = 2 };

struct DeviceOptions {
    std::string name;      // the device folder's name: 1..64 printable ASCII, no '/', no leading '.'
    std::string userPin;   // 4..64 bytes
    std::string adminPin;  // 4..64 bytes
    unsigned maxRetries = 6;  // 1..255 tries per PIN before it locks
    std::string applicationName = "SOFTAPP";
    std::string containerName = "SM2Container";
    std::string commonName;  // subject CN of the certificates; empty: the device name
    // PBKDF2-SHA256 rounds for the PIN verifiers and the key that seals the private keys.
    // 0: the default, sized so one PIN check costs a few milliseconds. Tests lower it.
    unsigned pbkdf2Iterations = 0;
};

struct ContainerOptions {
    std::string name;
    ContainerType type = ContainerType::Sm2;
    std::string commonName;  // empty: the container's name
    bool withEncryptionPair = true;
    bool withSigningPair = true;
    unsigned rsaBits = 2048;  // RSA containers only
};

// Creates `root` (0700) when missing and the device folder in it (failing when that exists),
// with one application holding the two PINs and one SM2 container: an encryption key pair
// and a signing key pair, each with a self-signed SM2-with-SM3 certificate.
bool createDevice(const std::string &root, const DeviceOptions &options, std::string *error);

// Adds a container to the device's application. Needs the user PIN, which seals the new
// private keys; does not touch the PIN's retry counter.
bool addContainer(const std::string &root, const std::string &device,
                  const std::string &userPin, const ContainerOptions &options,
                  std::string *error);

// Device names of `root` in the order SKF_EnumDev lists them; empty when there is none.
std::vector<std::string> listDevices(const std::string &root);

bool removeDevice(const std::string &root, const std::string &device, std::string *error);

enum class CertificateUsage { Encryption, Signing };

// DER of a container's certificate; false when the container or the certificate is missing.
bool getCertificate(const std::string &root, const std::string &device,
                    const std::string &container, CertificateUsage usage,
                    std::vector<unsigned char> *der, std::string *error);
bool getEncryptionCertificate(const std::string &root, const std::string &device,
                              const std::string &container, std::vector<unsigned char> *der,
                              std::string *error);

// PEM (PKCS#8, unencrypted) of a container's encryption private key, for tools and tests
// that decrypt on their own. Needs the right user PIN; a wrong one fails without counting
// a try. Reads only.
bool exportEncryptionPrivateKeyPem(const std::string &root, const std::string &device,
                                   const std::string &container, const std::string &userPin,
                                   std::string *pem, std::string *error);

} // namespace softskf
