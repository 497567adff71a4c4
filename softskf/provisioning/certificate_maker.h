#pragma once

#include "sealed_key.h"
#include "status.h"

#include <openssl/evp.h>

#include <string>
#include <vector>

namespace softskf {

// A self-signed X.509 v3 certificate (DER) for the key: SM2 keys are signed with SM2-with-SM3
// and their public key goes out as id-ecPublicKey on the SM2 curve, as certificate
// authorities issue them; RSA keys with SHA-256. Key usage follows `usage`: encryption
// certificates say keyEncipherment and dataEncipherment, signing certificates
// digitalSignature and nonRepudiation. Random positive 128-bit serial, ten years' validity.
Status makeSelfSignedCertificate(EVP_PKEY *key, const std::string &commonName, KeyUsage usage,
                                 std::vector<unsigned char> *der);

} // namespace softskf
