// This file parses untrusted bytes (through OpenSSL's certificate decoders).
#include "certificate_component.h"

#include "ec_public_point_p.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

namespace zthost {
namespace {

struct X509Free {
    void operator()(X509 *certificate) const { X509_free(certificate); }
};
struct BioFree {
    void operator()(BIO *bio) const { BIO_free(bio); }
};
using Certificate = std::unique_ptr<X509, X509Free>;
using Bio = std::unique_ptr<BIO, BioFree>;

// Certificates are never encrypted; an "encrypted" PEM block gets no passphrase rather than a
// prompt on the host's terminal.
int refusePassphrase(char *, int, int, void *)
{
    return -1;
}

// The certificate `bytes` hold as DER; null with `*trailing` set when bytes follow a decodable
// certificate.
Certificate fromDer(const QByteArray &bytes, int *trailing)
{
    const auto *begin = reinterpret_cast<const unsigned char *>(bytes.constData());
    const unsigned char *cursor = begin;
    Certificate certificate(d2i_X509(nullptr, &cursor, bytes.size()));
    *trailing = certificate ? bytes.size() - static_cast<int>(cursor - begin) : 0;
    if (*trailing != 0)
        certificate.reset();
    return certificate;
}

Certificate fromPem(const QByteArray &bytes, QString *error)
{
    Bio bio(BIO_new_mem_buf(bytes.constData(), bytes.size()));
    if (!bio) {
        *error = QStringLiteral("no memory to read %1 bytes of PEM").arg(bytes.size());
        return Certificate();
    }
    Certificate certificate(PEM_read_bio_X509(bio.get(), nullptr, refusePassphrase, nullptr));
    if (!certificate) {
        *error = QStringLiteral("%1 bytes hold neither a DER certificate nor a PEM CERTIFICATE "
                                "block").arg(bytes.size());
        return Certificate();
    }
    if (Certificate(PEM_read_bio_X509(bio.get(), nullptr, refusePassphrase, nullptr))) {
        *error = QStringLiteral("the PEM text holds more than one certificate");
        return Certificate();
    }
    return certificate;
}

} // namespace

CertificateComponent::CertificateComponent(QObject *parent) : QObject(parent) {}

CertificateComponent::~CertificateComponent() = default;

bool CertificateComponent::open(QByteArray certificate)
{
    m_hasCertificate = false;
    m_publicKeyData.clear();
    m_keyError.clear();
    m_error.clear();
    if (certificate.isEmpty()) {
        m_error = QStringLiteral("no certificate bytes");
        return false;
    }
    // Failed decodes queue OpenSSL errors that are no concern of the caller's.
    ERR_set_mark();
    int trailing = 0;
    Certificate decoded = fromDer(certificate, &trailing);
    if (!decoded && trailing != 0) {
        m_error = QStringLiteral("%1 bytes follow the DER certificate").arg(trailing);
    } else if (!decoded) {
        decoded = fromPem(certificate, &m_error);
    }
    ERR_pop_to_mark();
    if (!decoded)
        return false;
    m_hasCertificate = true;
    m_publicKeyData = ecPublicPoint(decoded.get(), &m_keyError);
    return true;
}

QByteArray CertificateComponent::getPublicKeyData()
{
    if (!m_hasCertificate)
        m_error = QStringLiteral("no certificate is open");
    else if (m_publicKeyData.isEmpty())
        m_error = m_keyError;
    return m_publicKeyData;
}

QString CertificateComponent::errorString() const
{
    return m_error;
}

} // namespace zthost
