#pragma once

#include <QByteArray>
#include <QString>

namespace ztfuzz {

struct SoftKey
{
    const char *device;
    const char *userPin;
    const char *adminPin;
    const char *container;
    unsigned maxRetries;
};

// A software key device in <temp>/softskf, which SOFTSKF_ROOT names from now on, with one SM2
// container and a cheap PIN hash. Answers its encryption certificate, DER. A fuzzer is useless
// without its device, so a failure ends the process with the reason.
QByteArray provisionSoftKey(const QString &temp, const SoftKey &key);

} // namespace ztfuzz
