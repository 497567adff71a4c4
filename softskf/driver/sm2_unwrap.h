#pragma once

#include "secret_bytes.h"
#include "status.h"

#include <openssl/evp.h>

#include <vector>

namespace softskf {

// SM2-decrypts a DER ciphertext (see cipher_blob.h) with an SM2 private key. A point off the
// curve, an altered hash or a ciphertext for another key is SAR_INDATAERR.
Status sm2Decrypt(EVP_PKEY *key, const std::vector<unsigned char> &der, SecretBytes *plain);

} // namespace softskf
