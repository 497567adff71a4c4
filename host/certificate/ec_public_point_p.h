#pragma once

#include <QByteArray>
#include <QString>

#include <openssl/x509.h>

namespace zthost {

// X followed by Y, 32 bytes each, of the EC public key of `certificate` when that key lies on a
// 256-bit curve. Keys labelled with the SM2 algorithm identifier that OpenSSL cannot decode on
// its own (no curve parameters) are read as points on the SM2 curve. Empty, with `error` saying
// why, for every other key.
QByteArray ecPublicPoint(const X509 *certificate, QString *error);

} // namespace zthost
