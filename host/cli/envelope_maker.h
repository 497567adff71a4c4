#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::cli {

// Makes a digital envelope of `content` for the recipient certificate `certificateDer` with the
// library's ZtEnvelopeData, which needs a core installed with ComponentInit that hands out the
// ASN.1 component. The session key is a fresh random 16-byte SM4 key, SM2-encrypted with
// OpenSSL to the certificate's public key; the content is SM4-ECB with PKCS#7 padding.
//
// The SM2 encryption is made again, with fresh randomness, until neither coordinate of C1
// starts with a zero octet, so each is exactly 32 bytes (see hasFullLengthCoordinates).
//
// The DER envelope, or empty with `error` saying which step failed and why.
QByteArray makeEnvelope(const QByteArray &certificateDer, const QByteArray &content,
                        QString *error);

} // namespace zthost::cli
