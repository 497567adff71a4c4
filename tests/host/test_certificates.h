#pragma once

// Keys and self-signed certificates made with OpenSSL for the host tests, so that no file of
// test data can drift from what OpenSSL itself writes.

#include <QByteArray>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

namespace certtest {

struct KeyFree {
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
struct X509Free {
    void operator()(X509 *certificate) const { X509_free(certificate); }
};
struct BioFree {
    void operator()(BIO *bio) const { BIO_free(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using Certificate = std::unique_ptr<X509, X509Free>;

inline Key sm2Key()
{
    return Key(EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2"));
}

inline Key ecKey(const char *curve)
{
    return Key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve));
}

inline Key rsaKey()
{
    return Key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(1024)));
}

// A certificate for `subjectKey`, self-signed when `signingKey` is null. SM2 keys sign with SM3,
// others with SHA-256.
inline Certificate certificateFor(EVP_PKEY *subjectKey, EVP_PKEY *signingKey = nullptr)
{
    EVP_PKEY *signer = signingKey != nullptr ? signingKey : subjectKey;
    Certificate certificate(X509_new());
    X509 *x = certificate.get();
    X509_set_version(x, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(x), 0x1234);
    X509_gmtime_adj(X509_getm_notBefore(x), 0);
    X509_gmtime_adj(X509_getm_notAfter(x), 3600);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(x), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>("host test"), -1, -1, 0);
    X509_set_issuer_name(x, X509_get_subject_name(x));
    if (X509_set_pubkey(x, subjectKey) != 1)
        return Certificate();
    const EVP_MD *digest = EVP_PKEY_is_a(signer, "SM2") ? EVP_sm3() : EVP_sha256();
    if (X509_sign(x, signer, digest) <= 0)
        return Certificate();
    return certificate;
}

inline QByteArray der(const X509 *certificate)
{
    unsigned char *out = nullptr;
    const int length = i2d_X509(certificate, &out);
    if (length <= 0)
        return QByteArray();
    QByteArray bytes(reinterpret_cast<const char *>(out), length);
    OPENSSL_free(out);
    return bytes;
}

inline QByteArray pem(X509 *certificate)
{
    std::unique_ptr<BIO, BioFree> bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(bio.get(), certificate);
    char *data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, static_cast<int>(length));
}

} // namespace certtest
