#pragma once

#include <QByteArray>
#include <QString>

// The host's envelope sealer: digital envelopes made with OpenSSL alone, never through the
// plug-in, exactly as the library's ZtEnvelopeData::build writes them. A fresh random 16-byte
// SM4 session key is SM2-encrypted to the recipient certificate's key, the content is SM4-ECB
// encrypted with PKCS#7 padding, and the DER around them is written with OpenSSL's encoders.
//
// Every INTEGER is minimal DER, the coordinates of C1 included. The plug-in reads a coordinate
// shorter than 32 octets back short (a behaviour kept on purpose), so a ciphertext whose
// coordinate has a leading zero octet, about one in 128, would make an envelope no key opens:
// the SM2 encryption is made again with fresh randomness until both coordinates are whole
// 32-byte values. That loop lives in sm2_session_key.cpp and nowhere else.
//
// Each function answers the DER, or empty with `error` naming the step that failed and the sizes
// involved. The certificate is DER, nothing before or after it; its key must be SM2.
namespace zthost {

inline constexpr int kSealerSessionKeySize = 16;
// Content beyond this is refused rather than risk an envelope longer than a QByteArray holds:
// 1 GiB where Qt's sizes are int (Qt 5: 2 GiB at most a container, and the Base64 text of the
// envelope is a third longer); with Qt 6's 64-bit sizes, 2 GiB less 1 MiB, so that the whole
// envelope stays within the int lengths of OpenSSL's encoders and ciphers.
inline constexpr qint64 kSealerMaxContentSize =
    sizeof(QByteArray().size()) == sizeof(int) ? qint64(1) << 30 : (qint64(1) << 31) - (1 << 20);

// The session key is drawn at random. `content` holds at least one byte: the key device
// refuses to decrypt to nothing.
QByteArray sealEnvelope(const QByteArray &recipientCertificateDer, const QByteArray &content,
                        QString *error);

// With the caller's session key, for callers that must know it (tests); it must be 16 fresh
// random bytes.
QByteArray sealEnvelope(const QByteArray &recipientCertificateDer, const QByteArray &content,
                        const QByteArray &sessionKey, QString *error);

// The session key alone as an envelope's encryptedKey carries it: the DER SM2 cipher structure
// SEQUENCE { INTEGER x, INTEGER y, OCTET STRING hash, OCTET STRING cipherText } with whole
// coordinates, for tests that assemble envelopes the sealer refuses to make.
QByteArray sealSessionKey(const QByteArray &recipientCertificateDer, const QByteArray &sessionKey,
                          QString *error);

} // namespace zthost
