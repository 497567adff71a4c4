// Parses untrusted bytes: an envelope and a certificate from wherever the user got them. Every
// element is read by OpenSSL within the bounds of the element around it.
#include "certificate_identity.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/x509.h>

#include <memory>

namespace zthost::cli {

namespace {

// One DER element inside [*p, end): its whole encoding and its content. Advances *p past it.
struct Element
{
    int tag = -1;
    int tagClass = 0;
    const unsigned char *start = nullptr;
    const unsigned char *content = nullptr;
    long length = 0;
};

bool next(const unsigned char **p, const unsigned char *end, Element *element)
{
    if (*p >= end)
        return false;
    element->start = *p;
    const unsigned char *q = *p;
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    const int flags = ASN1_get_object(&q, &length, &tag, &tagClass, long(end - *p));
    // 0x80: an error; 0x21: indefinite length, which DER never uses.
    if ((flags & 0x80) || flags == 0x21 || length > long(end - q))
        return false;
    element->tag = tag;
    element->tagClass = tagClass;
    element->content = q;
    element->length = length;
    *p = q + length;
    return true;
}

// Steps into the content of the element at *p, which must have `tag` in `tagClass`.
bool enter(const unsigned char **p, const unsigned char **end, int tag, int tagClass)
{
    Element element;
    if (!next(p, *end, &element) || element.tag != tag || element.tagClass != tagClass)
        return false;
    *p = element.content;
    *end = element.content + element.length;
    return true;
}

QString nameText(const X509_NAME *name)
{
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), &BIO_free);
    if (!bio || X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253) < 0)
        return QString();
    char *data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return QString::fromUtf8(data, int(size));
}

QString serialText(const ASN1_INTEGER *serial)
{
    std::unique_ptr<BIGNUM, decltype(&BN_free)> number(ASN1_INTEGER_to_BN(serial, nullptr),
                                                        &BN_free);
    if (!number)
        return QString();
    char *hex = BN_bn2hex(number.get());
    const QString text = hex ? QString::fromLatin1(hex) : QString();
    OPENSSL_free(hex);
    return text;
}

bool fill(const QByteArray &issuerDer, const QByteArray &serialDer, CertificateIdentity *identity)
{
    const auto *p = reinterpret_cast<const unsigned char *>(issuerDer.constData());
    std::unique_ptr<X509_NAME, decltype(&X509_NAME_free)> name(
        d2i_X509_NAME(nullptr, &p, issuerDer.size()), &X509_NAME_free);
    const auto *s = reinterpret_cast<const unsigned char *>(serialDer.constData());
    std::unique_ptr<ASN1_INTEGER, decltype(&ASN1_INTEGER_free)> serial(
        d2i_ASN1_INTEGER(nullptr, &s, serialDer.size()), &ASN1_INTEGER_free);
    if (!name || !serial)
        return false;
    identity->issuer = nameText(name.get());
    identity->serial = serialText(serial.get());
    identity->issuerDer = issuerDer;
    identity->serialDer = serialDer;
    return true;
}

} // namespace

QString CertificateIdentity::text() const
{
    return QStringLiteral("issuer %1, serial %2").arg(issuer, serial);
}

bool envelopeRecipient(const QByteArray &envelopeDer, CertificateIdentity *recipient)
{
    const auto *p = reinterpret_cast<const unsigned char *>(envelopeDer.constData());
    const unsigned char *end = p + envelopeDer.size();
    Element skipped;
    if (!enter(&p, &end, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL)         // ContentInfo
        || !next(&p, end, &skipped)                                  // contentType
        || !enter(&p, &end, 0, V_ASN1_CONTEXT_SPECIFIC)              // [0]
        || !enter(&p, &end, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL)       // EnvelopedData
        || !next(&p, end, &skipped)                                  // version
        || !enter(&p, &end, V_ASN1_SET, V_ASN1_UNIVERSAL)            // recipientInfos
        || !enter(&p, &end, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL)       // RecipientInfo
        || !next(&p, end, &skipped)                                  // version
        || !enter(&p, &end, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL))      // IssuerAndSerialNumber
        return false;
    Element issuer;
    Element serial;
    if (!next(&p, end, &issuer) || issuer.tag != V_ASN1_SEQUENCE || !next(&p, end, &serial)
        || serial.tag != V_ASN1_INTEGER)
        return false;
    const auto whole = [](const Element &e) {
        return QByteArray(reinterpret_cast<const char *>(e.start),
                          int(e.content + e.length - e.start));
    };
    return fill(whole(issuer), whole(serial), recipient);
}

bool certificateIdentity(const QByteArray &certificateDer, CertificateIdentity *identity)
{
    const auto *p = reinterpret_cast<const unsigned char *>(certificateDer.constData());
    std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &p, certificateDer.size()), &X509_free);
    if (!certificate)
        return false;
    unsigned char *der = nullptr;
    int length = i2d_X509_NAME(X509_get_issuer_name(certificate.get()), &der);
    if (length <= 0)
        return false;
    const QByteArray issuerDer(reinterpret_cast<const char *>(der), length);
    OPENSSL_free(der);
    der = nullptr;
    length = i2d_ASN1_INTEGER(X509_get0_serialNumber(certificate.get()), &der);
    if (length <= 0)
        return false;
    const QByteArray serialDer(reinterpret_cast<const char *>(der), length);
    OPENSSL_free(der);
    return fill(issuerDer, serialDer, identity);
}

} // namespace zthost::cli
