#include "certificate_maker.h"

#include "openssl_ptr.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <memory>

namespace softskf {

namespace {

constexpr int kSerialBits = 128;
constexpr long kValiditySeconds = 10L * 365 * 24 * 60 * 60;
// The signer identity SM2 signatures use when none is agreed: "1234567812345678".
constexpr unsigned char kSm2DefaultId[] = {'1', '2', '3', '4', '5', '6', '7', '8',
                                           '1', '2', '3', '4', '5', '6', '7', '8'};

Status failure(const std::string &what)
{
    ERR_clear_error();
    return Status::failure(SAR_FAIL, "certificate: " + what);
}

bool setRandomSerial(X509 *certificate)
{
    std::unique_ptr<BIGNUM, decltype(&BN_free)> serial(BN_new(), BN_free);
    // Top bit clear keeps the DER INTEGER positive without a sign byte making it 17 bytes.
    if (!serial || BN_rand(serial.get(), kSerialBits - 1, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) != 1)
        return false;
    if (BN_is_zero(serial.get()) && BN_set_word(serial.get(), 1) != 1)
        return false;
    return BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)) != nullptr;
}

bool addExtension(X509 *certificate, int nid, const char *value)
{
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    if (!extension)
        return false;
    const bool added = X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
}

bool sign(X509 *certificate, EVP_PKEY *key)
{
    MdCtxPtr md(EVP_MD_CTX_new());
    if (!md)
        return false;
    const bool sm2 = EVP_PKEY_is_a(key, "SM2");
    EVP_PKEY_CTX *pkeyCtx = nullptr;
    if (sm2) {
        // The identity must be set on a context of its own before the digest starts.
        PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
        if (!ctx || EVP_PKEY_CTX_set1_id(ctx.get(), kSm2DefaultId, sizeof kSm2DefaultId) != 1)
            return false;
        EVP_MD_CTX_set_pkey_ctx(md.get(), ctx.get());
        pkeyCtx = ctx.release();
    }
    const char *digest = sm2 ? "SM3" : "SHA256";
    const bool ok = EVP_DigestSignInit_ex(md.get(), nullptr, digest, nullptr, nullptr, key, nullptr) == 1
                    && X509_sign_ctx(certificate, md.get()) > 0;
    if (pkeyCtx) {
        EVP_MD_CTX_set_pkey_ctx(md.get(), nullptr);
        EVP_PKEY_CTX_free(pkeyCtx);
    }
    return ok;
}

} // namespace

Status makeSelfSignedCertificate(EVP_PKEY *key, const std::string &commonName, KeyUsage usage,
                                 std::vector<unsigned char> *der)
{
    X509Ptr certificate(X509_new());
    if (!certificate || X509_set_version(certificate.get(), X509_VERSION_3) != 1
        || !setRandomSerial(certificate.get()))
        return failure("cannot start a certificate");
    X509_NAME *name = X509_get_subject_name(certificate.get());
    if (X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char *>(commonName.c_str()), -1,
                                   -1, 0)
            != 1
        || X509_set_issuer_name(certificate.get(), name) != 1)
        return failure("cannot set the name CN=" + commonName);
    if (!X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0)
        || !X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kValiditySeconds)
        || X509_set_pubkey(certificate.get(), key) != 1)
        return failure("cannot set the validity or the public key");
    const char *keyUsage = usage == KeyUsage::Encryption
                               ? "critical,keyEncipherment,dataEncipherment"
                               : "critical,digitalSignature,nonRepudiation";
    if (!addExtension(certificate.get(), NID_basic_constraints, "critical,CA:FALSE")
        || !addExtension(certificate.get(), NID_key_usage, keyUsage)
        || !addExtension(certificate.get(), NID_subject_key_identifier, "hash"))
        return failure("cannot add the extensions");
    if (!sign(certificate.get(), key))
        return failure("cannot self-sign");
    unsigned char *bytes = nullptr;
    const int length = i2d_X509(certificate.get(), &bytes);
    if (length <= 0)
        return failure("cannot encode as DER");
    der->assign(bytes, bytes + length);
    OPENSSL_free(bytes);
    return Status::success();
}

} // namespace softskf
