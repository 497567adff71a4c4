// Reads certificates from files the user names: untrusted bytes, parsed by OpenSSL only.
#include "certificate_input.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

namespace zthost::cli {

namespace {
struct OpenSslFree
{
    void operator()(X509 *x) const { X509_free(x); }
    void operator()(BIO *b) const { BIO_free(b); }
};

// Whether `der` is exactly one X.509 certificate, nothing before or after it.
bool isWholeCertificate(const QByteArray &der)
{
    const auto *start = reinterpret_cast<const unsigned char *>(der.constData());
    const unsigned char *p = start;
    std::unique_ptr<X509, OpenSslFree> certificate(d2i_X509(nullptr, &p, der.size()));
    return certificate && p == start + der.size();
}

QByteArray derOfPem(const QByteArray &pem)
{
    std::unique_ptr<BIO, OpenSslFree> bio(BIO_new_mem_buf(pem.constData(), pem.size()));
    std::unique_ptr<X509, OpenSslFree> certificate(
        bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!certificate)
        return QByteArray();
    unsigned char *der = nullptr;
    const int length = i2d_X509(certificate.get(), &der);
    if (length <= 0)
        return QByteArray();
    QByteArray copy(reinterpret_cast<const char *>(der), length);
    OPENSSL_free(der);
    return copy;
}
} // namespace

const char *formatName(CertificateFormat format)
{
    switch (format) {
    case CertificateFormat::Der:
        return "DER";
    case CertificateFormat::Pem:
        return "PEM";
    case CertificateFormat::Base64:
        return "Base64";
    }
    return "DER";
}

bool certificateDer(const QByteArray &input, QByteArray *der, CertificateFormat *format,
                    QString *error)
{
    if (isWholeCertificate(input)) {
        *der = input;
        *format = CertificateFormat::Der;
        return true;
    }
    if (input.contains("-----BEGIN")) {
        *der = derOfPem(input);
        if (!der->isEmpty()) {
            *format = CertificateFormat::Pem;
            return true;
        }
        *error = QStringLiteral("the PEM text (%1 bytes) holds no readable certificate")
                     .arg(input.size());
        return false;
    }
    // Strict decoding: text that is not Base64 at all must not turn into a few stray bytes.
    QByteArray compact = input.simplified();
    compact.replace(' ', QByteArray());
    const auto decoded =
        QByteArray::fromBase64Encoding(compact, QByteArray::AbortOnBase64DecodingErrors);
    if (decoded && isWholeCertificate(decoded.decoded)) {
        *der = decoded.decoded;
        *format = CertificateFormat::Base64;
        return true;
    }
    *error = QStringLiteral("%1 bytes that are no certificate in DER, PEM or Base64")
                 .arg(input.size());
    return false;
}

} // namespace zthost::cli
