#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

namespace zthost::cli {

// What `encrypt` and `doctor` judge a certificate by.
struct CertificateFacts
{
    QString subject;   // RFC 2253: "CN=alice"
    QString keyType;   // "SM2", "RSA", "EC on curve prime256v1"
    bool sm2 = false;
    QDateTime notBefore; // UTC
    QDateTime notAfter;  // UTC
    // The key usage extension's bits by name ("keyEncipherment"); empty when it has none.
    QStringList keyUsage;
    bool hasKeyUsage = false;

    // True when the certificate has no key usage extension (every use allowed) or its key usage
    // names keyEncipherment: the use a digital envelope makes of the recipient's key.
    bool allowsKeyEncipherment() const
    {
        return !hasKeyUsage || keyUsage.contains(QLatin1String("keyEncipherment"));
    }
};

// False with `error` set when `der` is not a DER X.509 certificate.
bool readCertificateFacts(const QByteArray &der, CertificateFacts *facts, QString *error);

// "the recipient certificate's key usage (digitalSignature, nonRepudiation) does not include
// keyEncipherment", or empty when it allows key encipherment.
QString keyEnciphermentProblem(const CertificateFacts &facts, const QString &whose);

} // namespace zthost::cli
