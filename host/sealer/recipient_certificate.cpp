// Parses untrusted bytes: the certificate is read by OpenSSL within the length it is given.
#include "recipient_certificate_p.h"

#include "key_type.h"

namespace zthost::sealing {

bool readRecipient(const QByteArray &certificateDer, Recipient *recipient, QString *error)
{
    const unsigned char *p = bytesOf(certificateDer);
    recipient->certificate.reset(d2i_X509(nullptr, &p, certificateDer.size()));
    if (!recipient->certificate) {
        openSslReason(); // the parser's reasons say nothing a caller can act on
        *error = QStringLiteral("the recipient certificate does not parse: %1 bytes that are no "
                                "DER X.509 certificate")
                     .arg(certificateDer.size());
        return false;
    }
    const long used = long(p - bytesOf(certificateDer));
    if (used != certificateDer.size()) {
        *error = QStringLiteral("the recipient certificate is %1 bytes, followed by %2 more")
                     .arg(used)
                     .arg(certificateDer.size() - used);
        return false;
    }

    recipient->key = X509_get0_pubkey(recipient->certificate.get());
    if (!recipient->key) {
        *error = QStringLiteral("the recipient certificate's public key cannot be read: %1")
                     .arg(openSslReason());
        return false;
    }
    if (!EVP_PKEY_is_a(recipient->key, "SM2")) {
        *error = QStringLiteral("the recipient certificate's key is %1, not SM2: the session key "
                                "can only be sealed to an SM2 key")
                     .arg(keyTypeOf(recipient->key));
        return false;
    }

    unsigned char *der = nullptr;
    const int issuerLength =
        i2d_X509_NAME(X509_get_issuer_name(recipient->certificate.get()), &der);
    recipient->issuerDer = takeI2d(issuerLength, der);
    der = nullptr;
    const int serialLength =
        i2d_ASN1_INTEGER(X509_get0_serialNumber(recipient->certificate.get()), &der);
    recipient->serialDer = takeI2d(serialLength, der);
    if (recipient->issuerDer.isEmpty() || recipient->serialDer.isEmpty()) {
        *error = QStringLiteral("the recipient certificate's issuer and serial number cannot be "
                                "written as DER: %1")
                     .arg(openSslReason());
        return false;
    }
    return true;
}

} // namespace zthost::sealing
