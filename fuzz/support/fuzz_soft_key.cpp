#include "fuzz_soft_key.h"

#include <softskf/provision.h>

#include <QDir>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace ztfuzz {

QByteArray provisionSoftKey(const QString &temp, const SoftKey &key)
{
    const std::string root = QDir(temp).filePath(QStringLiteral("softskf")).toStdString();
    ::setenv("SOFTSKF_ROOT", root.c_str(), 1);

    softskf::DeviceOptions options;
    options.name = key.device;
    options.userPin = key.userPin;
    options.adminPin = key.adminPin;
    options.containerName = key.container;
    options.maxRetries = key.maxRetries;
    options.pbkdf2Iterations = 1;
    std::string error;
    std::vector<unsigned char> der;
    if (!softskf::createDevice(root, options, &error)
        || !softskf::getEncryptionCertificate(root, key.device, key.container, &der, &error)) {
        std::fprintf(stderr, "fuzzer set-up: no software key device: %s\n", error.c_str());
        std::abort();
    }
    return QByteArray(reinterpret_cast<const char *>(der.data()), int(der.size()));
}

} // namespace ztfuzz
