#pragma once

#include "openssl_ptr.h"
#include "secret_bytes.h"
#include "status.h"

#include <cstdint>

namespace softskf {

// Fresh key pairs of a container's type.
Status generateSm2Key(PkeyPtr *key);
Status generateRsaKey(unsigned bits, PkeyPtr *key);

// PKCS#8 DER of a private key, the form that gets sealed.
Status privateKeyToPkcs8(EVP_PKEY *key, SecretBytes *der);
// Parses PKCS#8 DER (untrusted once unsealed from disk) and checks it is of the container's
// type: CONTAINER_TYPE_SM2 keys come back as OpenSSL "SM2" keys, so that EVP decryption
// runs SM2 and not plain EC.
Status privateKeyFromPkcs8(const SecretBytes &der, std::uint32_t containerType, PkeyPtr *key);

} // namespace softskf
