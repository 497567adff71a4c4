#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace softskf {

struct OpensslDeleter {
    void operator()(EVP_PKEY *p) const { EVP_PKEY_free(p); }
    void operator()(EVP_PKEY_CTX *p) const { EVP_PKEY_CTX_free(p); }
    void operator()(EVP_CIPHER_CTX *p) const { EVP_CIPHER_CTX_free(p); }
    void operator()(EVP_CIPHER *p) const { EVP_CIPHER_free(p); }
    void operator()(EVP_MD_CTX *p) const { EVP_MD_CTX_free(p); }
    void operator()(X509 *p) const { X509_free(p); }
    void operator()(X509_NAME *p) const { X509_NAME_free(p); }
    void operator()(PKCS8_PRIV_KEY_INFO *p) const { PKCS8_PRIV_KEY_INFO_free(p); }
    void operator()(BIO *p) const { BIO_free(p); }
};

using PkeyPtr = std::unique_ptr<EVP_PKEY, OpensslDeleter>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, OpensslDeleter>;
using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, OpensslDeleter>;
using CipherPtr = std::unique_ptr<EVP_CIPHER, OpensslDeleter>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, OpensslDeleter>;
using X509Ptr = std::unique_ptr<X509, OpensslDeleter>;
using X509NamePtr = std::unique_ptr<X509_NAME, OpensslDeleter>;
using Pkcs8Ptr = std::unique_ptr<PKCS8_PRIV_KEY_INFO, OpensslDeleter>;
using BioPtr = std::unique_ptr<BIO, OpensslDeleter>;

} // namespace softskf
