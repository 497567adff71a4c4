#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

namespace zthost {

// The certificate component the host core hands out for "ZTUTIL.ZtCerificate.1": holds one
// X.509 certificate and answers its public point.
class CertificateComponent : public QObject
{
    Q_OBJECT
public:
    explicit CertificateComponent(QObject *parent = nullptr);
    ~CertificateComponent() override;

    // Takes exactly one certificate: DER with no byte after it, or PEM text holding one
    // "CERTIFICATE" block (text around it is ignored; a second certificate is refused). False
    // for anything else; a refused open also forgets the certificate held before.
    Q_INVOKABLE bool open(QByteArray certificate);

    // X followed by Y, each 32 bytes big-endian and left-padded with zeros, of the certificate's
    // EC public key on a 256-bit curve (SM2 in particular, whether the key is labelled
    // id-ecPublicKey with the SM2 curve or with the SM2 algorithm identifier). Empty for any
    // other key, an undecodable key, or when no certificate is held.
    Q_INVOKABLE QByteArray getPublicKeyData();

    // Why the last open or getPublicKeyData failed. Not part of the component's dispatch vocabulary.
    QString errorString() const;

private:
    // The point is read once, when the certificate is opened; the certificate itself is not kept.
    bool m_hasCertificate = false;
    QByteArray m_publicKeyData;
    QString m_keyError;  // why m_publicKeyData is empty
    QString m_error;
};

} // namespace zthost
