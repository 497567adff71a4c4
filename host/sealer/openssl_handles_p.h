#pragma once

#include <QByteArray>
#include <QString>

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace zthost::sealing {

struct OpenSslFree
{
    void operator()(X509 *x) const { X509_free(x); }
    void operator()(EVP_PKEY_CTX *c) const { EVP_PKEY_CTX_free(c); }
    void operator()(EVP_CIPHER_CTX *c) const { EVP_CIPHER_CTX_free(c); }
    void operator()(EVP_CIPHER *c) const { EVP_CIPHER_free(c); }
    void operator()(BIGNUM *n) const { BN_free(n); }
    // ASN1_INTEGER and ASN1_OCTET_STRING are both ASN1_STRING.
    void operator()(ASN1_STRING *s) const { ASN1_STRING_free(s); }
    void operator()(ASN1_OBJECT *o) const { ASN1_OBJECT_free(o); }
    void operator()(ASN1_SEQUENCE_ANY *s) const { sk_ASN1_TYPE_pop_free(s, ASN1_TYPE_free); }
};
template<typename T>
using Owned = std::unique_ptr<T, OpenSslFree>;

// The reason OpenSSL queued for its latest failure, "no reason given" when none; the queue is
// left empty for the next step.
QString openSslReason();

const unsigned char *bytesOf(const QByteArray &array);

// Takes over what an i2d call allocated: empty when `length` says the call failed. Call as
// `const int n = i2d_X(x, &der);` first, so the call runs before `der` is read.
QByteArray takeI2d(int length, unsigned char *der);

} // namespace zthost::sealing
