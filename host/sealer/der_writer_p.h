#pragma once

#include <QByteArray>

#include <openssl/bn.h>

// DER values written with OpenSSL's encoders. Each answers the whole value (identifier, length,
// content), or empty when OpenSSL could not write it (out of memory, or content too long for
// one DER length).
namespace zthost::sealing::der {

// Identifier octets of the constructed values the envelope uses.
inline constexpr int kSequence = 0x30;
inline constexpr int kSet = 0x31;
inline constexpr int kContextZero = 0xA0; // [0], constructed

// `identifier` (one of the above) around content that is already DER.
QByteArray constructed(int identifier, const QByteArray &content);

QByteArray octetString(const QByteArray &content);

// Minimal DER: no zero octet in front unless the top bit of the next one is set.
QByteArray integer(const BIGNUM *value);
QByteArray integer(unsigned long value);

// From dotted text such as "1.2.156.10197.1.104.1".
QByteArray objectIdentifier(const char *dotted);

} // namespace zthost::sealing::der
