#pragma once

#include <QString>

#include <openssl/types.h>

namespace zthost::sealing {

// A public key's type as a person reads it: "SM2", "RSA", or "EC on curve prime256v1" for an
// elliptic-curve key on a curve other than SM2's; "unreadable" for no key at all.
QString keyTypeOf(EVP_PKEY *key);

} // namespace zthost::sealing
