#pragma once

#include <QByteArray>
#include <QString>

#include <openssl/evp.h>

namespace zthost::sealing {

// Sizes in the SM2 ciphertext of a 16-byte session key.
namespace Sm2Sizes {
inline constexpr int kCoordinate = 32;
inline constexpr int kHash = 32;
// SM2 ciphertext is as long as its plaintext.
inline constexpr int kSessionKey = 16;
} // namespace Sm2Sizes

// `sessionKey` SM2-encrypted to `recipient`, as the envelope's encryptedKey carries it: the DER
// SEQUENCE { INTEGER x, INTEGER y, OCTET STRING hash, OCTET STRING cipherText }, each INTEGER
// written minimal. The encryption is made again, with fresh randomness, until both coordinates
// of C1 are whole 32-byte values (see envelope_sealer.h for why). Empty with `error` naming the
// step and the sizes when it fails.
QByteArray sm2SessionKey(EVP_PKEY *recipient, const QByteArray &sessionKey, QString *error);

} // namespace zthost::sealing
