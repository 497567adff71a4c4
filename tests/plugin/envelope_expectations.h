#pragma once

// What the envelope tests expect, worked out with OpenSSL and written down by hand, never with
// the library: the host's INTEGER rule, packed key data, and the library's envelope shape.

#include "openssl_envelope.h"

#include <QByteArray>

// The content octets the host's ASN.1 component keeps for an INTEGER given `value`: one 00 in
// front when the top bit is set.
inline QByteArray hostInteger(const QByteArray &value)
{
    return !value.isEmpty() && (static_cast<unsigned char>(value.at(0)) & 0x80)
        ? QByteArray(1, '\0') + value
        : value;
}

// Packed key data x ‖ y ‖ HASH ‖ CipherText with every byte told apart: x = 0x81.., y = 0x01..
// (top bit set in x only), HASH = 0x41.., CipherText = 0xC1...
inline QByteArray countingPackedKey()
{
    QByteArray packed;
    for (int i = 0; i < 32; ++i)
        packed.append(char(0x81 + i));
    for (int i = 0; i < 32; ++i)
        packed.append(char(0x01 + i));
    for (int i = 0; i < 32; ++i)
        packed.append(char(0x41 + i));
    for (int i = 0; i < 16; ++i)
        packed.append(char(0xC1 + i));
    return packed;
}

// The DER of the SM2 cipher structure the library writes for 112 bytes of packed key data.
inline QByteArray expectedCipherStructure(const QByteArray &packed)
{
    return derValue(0x30, derValue(0x02, hostInteger(packed.mid(0, 32)))
                              + derValue(0x02, hostInteger(packed.mid(32, 32)))
                              + derValue(0x04, packed.mid(64, 32)) + derValue(0x04, packed.mid(96, 16)));
}

// The envelope the library writes for a recipient certificate made by OpenSSL.
inline QByteArray expectedEnvelope(const QByteArray &certificateDer, const QByteArray &encKeyData,
                                   const QByteArray &content)
{
    EnvelopeParts parts;
    issuerAndSerialOf(certificateDer, &parts.issuerDer, &parts.serialDer);
    parts.encryptedKey = encKeyData;
    parts.encryptedContent = content;
    return assembleEnvelope(parts);
}
