#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::sealing {

// What an envelope holds besides its fixed object identifiers and versions.
struct EnvelopeContents
{
    QByteArray issuerDer;        // the recipient certificate's issuer, its whole DER Name
    QByteArray serialDer;        // the recipient certificate's serialNumber, its whole DER INTEGER
    QByteArray encryptedKey;     // the DER SM2 cipher structure of the session key
    QByteArray encryptedContent; // SM4-ECB with PKCS#7 padding
};

// The envelope the library's ZtEnvelopeData::build writes for the same contents:
//
//   ContentInfo SEQUENCE {
//     contentType envelopedData,
//     [0] EnvelopedData SEQUENCE {
//       version 1,
//       SET { RecipientInfo SEQUENCE {
//         version 1, issuerAndSerialNumber SEQUENCE { issuer, serialNumber },
//         keyEncryptionAlgorithm SEQUENCE { SM2 encryption }, encryptedKey OCTET STRING } },
//       EncryptedContentInfo SEQUENCE {
//         contentType data, contentEncryptionAlgorithm SEQUENCE { SM4-ECB },
//         [0] { OCTET STRING encryptedContent } } } }
//
// Neither algorithm carries a parameters element, not even NULL. Empty with `error` when
// OpenSSL cannot write a value.
QByteArray envelopeDer(const EnvelopeContents &contents, QString *error);

} // namespace zthost::sealing
