#include "sm2_unwrap.h"

#include "openssl_ptr.h"

#include <openssl/err.h>

#include <string>

namespace softskf {

Status sm2Decrypt(EVP_PKEY *key, const std::vector<unsigned char> &der, SecretBytes *plain)
{
    if (!EVP_PKEY_is_a(key, "SM2"))
        return Status::failure(SAR_KEYUSAGEERR, "the container's key is not an SM2 key");
    // The context is made from the key itself so OpenSSL picks its SM2 implementation (the
    // key was checked to be "SM2"; an EC context would not decrypt at all).
    PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    std::size_t length = 0;
    if (!ctx || EVP_PKEY_decrypt_init(ctx.get()) != 1
        || EVP_PKEY_decrypt(ctx.get(), nullptr, &length, der.data(), der.size()) != 1) {
        ERR_clear_error();
        return Status::failure(SAR_FAIL, "cannot set up SM2 decryption");
    }
    SecretBytes out(length);
    if (EVP_PKEY_decrypt(ctx.get(), out.data(), &length, der.data(), der.size()) != 1) {
        ERR_clear_error();
        return Status::failure(SAR_INDATAERR,
                               "SM2 decryption of a " + std::to_string(der.size())
                                   + "-byte ciphertext failed: point not on the curve, hash "
                                     "mismatch, or wrapped for another key");
    }
    *plain = SecretBytes(out.data(), length);
    return Status::success();
}

} // namespace softskf
