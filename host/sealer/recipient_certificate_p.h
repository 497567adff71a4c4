#pragma once

#include "openssl_handles_p.h"

#include <QByteArray>
#include <QString>

namespace zthost::sealing {

// The recipient as the sealer needs it: the SM2 public key the session key is sealed to, and the
// issuer and serial number the envelope names the recipient by.
struct Recipient
{
    Owned<X509> certificate;
    EVP_PKEY *key = nullptr;  // belongs to `certificate`
    QByteArray issuerDer;     // whole DER Name, as the certificate has it
    QByteArray serialDer;     // whole DER INTEGER, as the certificate has it
};

// False with `error` set when `certificateDer` is not one DER X.509 certificate and nothing
// after it, or its key is not SM2 ("the recipient certificate's key is RSA, not SM2: ...").
bool readRecipient(const QByteArray &certificateDer, Recipient *recipient, QString *error);

} // namespace zthost::sealing
