#include "private_key.h"

#include "skf.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/objects.h>
#include <openssl/params.h>
#include <openssl/x509.h>

#include <climits>
#include <string>

namespace softskf {

namespace {

// OpenSSL 3 decodes id-ecPublicKey keys on the SM2 curve as "SM2" already; a key that came
// back as plain "EC" on that curve is carried over, so decryption never runs as ECDH/ECIES.
Status ensureSm2(PkeyPtr *key)
{
    if (EVP_PKEY_is_a(key->get(), "SM2"))
        return Status::success();
    char group[64] = {};
    std::size_t groupLength = 0;
    if (!EVP_PKEY_is_a(key->get(), "EC")
        || EVP_PKEY_get_utf8_string_param(key->get(), OSSL_PKEY_PARAM_GROUP_NAME, group,
                                          sizeof group, &groupLength)
               != 1
        || OBJ_sn2nid(group) != NID_sm2)
        return Status::failure(SAR_KEYNOTFOUNTERR, "stored key is not an SM2 key");
    OSSL_PARAM *params = nullptr;
    if (EVP_PKEY_todata(key->get(), EVP_PKEY_KEYPAIR, &params) != 1)
        return Status::failure(SAR_FAIL, "cannot read the SM2 key's parameters");
    PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, "SM2", nullptr));
    EVP_PKEY *converted = nullptr;
    const bool ok = ctx && EVP_PKEY_fromdata_init(ctx.get()) == 1
                    && EVP_PKEY_fromdata(ctx.get(), &converted, EVP_PKEY_KEYPAIR, params) == 1;
    OSSL_PARAM_free(params);
    if (!ok)
        return Status::failure(SAR_FAIL, "cannot make an SM2 key of the stored EC key");
    key->reset(converted);
    return Status::success();
}

} // namespace

Status generateSm2Key(PkeyPtr *key)
{
    PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, "SM2", nullptr));
    EVP_PKEY *generated = nullptr;
    if (!ctx || EVP_PKEY_keygen_init(ctx.get()) != 1
        || EVP_PKEY_keygen(ctx.get(), &generated) != 1)
        return Status::failure(SAR_GENRANDERR, "SM2 key generation failed");
    key->reset(generated);
    return Status::success();
}

Status generateRsaKey(unsigned bits, PkeyPtr *key)
{
    if (bits < 1024 || bits > 4096)
        return Status::failure(SAR_MODULUSLENERR, "RSA modulus of " + std::to_string(bits)
                                                      + " bits, expected 1024..4096");
    EVP_PKEY *generated = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<std::size_t>(bits));
    if (!generated)
        return Status::failure(SAR_GENRSAKEYERR, "RSA key generation failed");
    key->reset(generated);
    return Status::success();
}

Status privateKeyToPkcs8(EVP_PKEY *key, SecretBytes *der)
{
    Pkcs8Ptr info(EVP_PKEY2PKCS8(key));
    if (!info)
        return Status::failure(SAR_FAIL, "cannot encode the private key as PKCS#8");
    unsigned char *bytes = nullptr;
    const int length = i2d_PKCS8_PRIV_KEY_INFO(info.get(), &bytes);
    if (length <= 0)
        return Status::failure(SAR_FAIL, "cannot encode the private key as PKCS#8");
    *der = SecretBytes(bytes, static_cast<std::size_t>(length));
    OPENSSL_clear_free(bytes, static_cast<std::size_t>(length));
    return Status::success();
}

Status privateKeyFromPkcs8(const SecretBytes &der, std::uint32_t containerType, PkeyPtr *key)
{
    if (der.size() > static_cast<std::size_t>(INT_MAX))
        return Status::failure(SAR_FILEERR, "private key is too long");
    const unsigned char *cursor = der.data();
    Pkcs8Ptr info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &cursor, static_cast<long>(der.size())));
    if (!info || cursor != der.data() + der.size())
        return Status::failure(SAR_FILEERR, "stored private key of " + std::to_string(der.size())
                                                + " bytes is not PKCS#8 DER");
    PkeyPtr parsed(EVP_PKCS82PKEY(info.get()));
    if (!parsed)
        return Status::failure(SAR_FILEERR, "stored PKCS#8 private key cannot be read");
    if (containerType == CONTAINER_TYPE_SM2) {
        Status status = ensureSm2(&parsed);
        if (!status.ok())
            return status;
    } else if (!EVP_PKEY_is_a(parsed.get(), "RSA")) {
        return Status::failure(SAR_KEYNOTFOUNTERR, "stored key is not an RSA key");
    }
    *key = std::move(parsed);
    return Status::success();
}

} // namespace softskf
