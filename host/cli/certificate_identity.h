#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::cli {

// A certificate as an envelope names its recipient: the issuer and the serial number.
struct CertificateIdentity
{
    QString issuer; // one line, RFC 2253 order: "CN=alice,O=SoftKey"
    QString serial; // upper-case hexadecimal, no leading zero octets: "0F3A..."
    QByteArray issuerDer;
    QByteArray serialDer;

    bool sameAs(const CertificateIdentity &other) const
    {
        return issuerDer == other.issuerDer && serialDer == other.serialDer;
    }
    // "issuer CN=alice, serial 0F3A..."
    QString text() const;
};

// The recipient an envelope (DER ContentInfo with EnvelopedData, as `zthost encrypt` and the
// library write it) names in its first RecipientInfo. False when the bytes are no such envelope.
bool envelopeRecipient(const QByteArray &envelopeDer, CertificateIdentity *recipient);

// The issuer and serial of a DER certificate. False when it does not parse.
bool certificateIdentity(const QByteArray &certificateDer, CertificateIdentity *identity);

} // namespace zthost::cli
