#pragma once

#include <QByteArray>

// The digital envelope: a DER ContentInfo holding an EnvelopedData with one recipient, SM2 key
// transport and SM4-ECB content. Child positions are those "getChild" counts; keep them in step
// between envelope_building.cpp and envelope_loading.cpp.
namespace ZtEnvelopeLayout {

// Content octets of the object identifiers the envelope carries.
// 1.2.156.10197.6.1.4.2.3, envelopedData
inline QByteArray envelopedDataOid()
{
    return QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x06\x01\x04\x02\x03");
}
// 1.2.156.10197.6.1.4.2.1, data
inline QByteArray dataOid()
{
    return QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x06\x01\x04\x02\x01");
}
// 1.2.156.10197.1.301.3, SM2 encryption; written without a parameters element
inline QByteArray sm2EncryptionOid()
{
    return QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x01\x82\x2D\x03");
}
// 1.2.156.10197.1.104.1, SM4 in ECB mode; written without a parameters element
inline QByteArray sm4EcbOid()
{
    return QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x01\x68\x01");
}
// Both version INTEGERs hold this one octet.
inline QByteArray versionOne()
{
    return QByteArrayLiteral("\x01");
}

// ContentInfo
constexpr int kContentIndex = 1;              // [0] content
constexpr int kEnvelopedDataIndex = 0;        // inside [0]
// EnvelopedData
constexpr int kRecipientInfosIndex = 1;       // SET OF RecipientInfo
constexpr int kFirstRecipientIndex = 0;       // only the first recipient is read
constexpr int kEncryptedContentInfoIndex = 2;
// RecipientInfo
constexpr int kEncryptedKeyIndex = 3;
// EncryptedContentInfo
constexpr int kEncryptedContentIndex = 2;     // [0], constructed
constexpr int kFirstSegmentIndex = 0;         // the one OCTET STRING inside it

// A certificate's tbsCertificate, and in it what issuerAndSerialNumber copies.
constexpr int kTbsCertificateIndex = 0;
constexpr int kSerialNumberIndex = 1;
constexpr int kIssuerIndex = 3;

// The SM2 cipher structure of the session key: SEQUENCE { x, y, HASH, CipherText }.
constexpr int kXCoordinateIndex = 0;
constexpr int kYCoordinateIndex = 1;
constexpr int kHashIndex = 2;
constexpr int kCipherTextIndex = 3;

// Packed key data: x ‖ y ‖ HASH ‖ CipherText, 112 bytes when every field has its full length.
constexpr int kCoordinateLength = 32;
constexpr int kHashLength = 32;
constexpr int kSessionKeyCipherLength = 16;
constexpr int kPackedXOffset = 0;
constexpr int kPackedYOffset = kPackedXOffset + kCoordinateLength;
constexpr int kPackedHashOffset = kPackedYOffset + kCoordinateLength;
constexpr int kPackedCipherOffset = kPackedHashOffset + kHashLength;
constexpr int kPackedKeyLength = kPackedCipherOffset + kSessionKeyCipherLength;
static_assert(kPackedKeyLength == 112, "the packed key data is 112 bytes");

} // namespace ZtEnvelopeLayout
