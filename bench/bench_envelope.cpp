// ZtEnvelopeData on the host's ASN.1 component, against assembling and walking the same DER
// with OpenSSL's ASN.1 primitives directly.

#include "decode_world.h"
#include "der_walk.h"
#include "entry_points.h"
#include "report.h"
#include "zt_envelope_data.h"

#include <QByteArray>

#include <openssl/asn1.h>

#include <cstring>

namespace {

constexpr int kEnvelopeContentSize = 1 << 20;
constexpr int kCoordinate = 32;
constexpr int kHash = 32;
constexpr int kKeyCipher = 16;

const QByteArray kEnvelopedDataOid = QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x06\x01\x04\x02\x03");
const QByteArray kDataOid = QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x06\x01\x04\x02\x01");
const QByteArray kSm2EncryptionOid = QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x01\x82\x2D\x03");
const QByteArray kSm4EcbOid = QByteArrayLiteral("\x2A\x81\x1C\xCF\x55\x01\x68\x01");

struct EnvelopeInputs
{
    QByteArray certificate;
    QByteArray packedKey; // x ‖ y ‖ HASH ‖ CipherText
    QByteArray content;
};

const EnvelopeInputs &inputs()
{
    static const EnvelopeInputs made = [] {
        EnvelopeInputs in;
        Sm2Identity identity = makeSm2Identity("Bench Recipient");
        in.certificate = identity.certificateDer;
        // Top bits set on both coordinates: the INTEGERs then need their sign octet.
        in.packedKey = patternedContent(kCoordinate * 2 + kHash + kKeyCipher);
        in.packedKey[0] = char(0xC1);
        in.packedKey[kCoordinate] = char(0xD2);
        in.content = patternedContent(kEnvelopeContentSize);
        return in;
    }();
    return made;
}

// One definite-length TLV header and its total size, as OpenSSL writes them.
int tlvSize(int contentLength, int tag)
{
    return ASN1_object_size(1, contentLength, tag);
}

void putHeader(unsigned char **out, bool constructed, int length, int tag, int tagClass)
{
    ASN1_put_object(out, constructed ? 1 : 0, length, tag, tagClass);
}

void putPrimitive(unsigned char **out, int tag, const char *data, int length)
{
    putHeader(out, false, length, tag, V_ASN1_UNIVERSAL);
    std::memcpy(*out, data, std::size_t(length));
    *out += length;
}

// An INTEGER's content octets: a leading 00 when the top bit is set, as the host's setData does.
int integerContentLength(const char *data, int length)
{
    return length + ((length > 0 && (static_cast<unsigned char>(data[0]) & 0x80)) ? 1 : 0);
}

void putInteger(unsigned char **out, const char *data, int length)
{
    const int content = integerContentLength(data, length);
    putHeader(out, false, content, V_ASN1_INTEGER, V_ASN1_UNIVERSAL);
    if (content != length)
        *(*out)++ = 0;
    std::memcpy(*out, data, std::size_t(length));
    *out += length;
}

QByteArray sm2CipherDer(const QByteArray &packed)
{
    const char *x = packed.constData();
    const char *y = x + kCoordinate;
    const char *hash = y + kCoordinate;
    const char *cipher = hash + kHash;
    const int body = tlvSize(integerContentLength(x, kCoordinate), V_ASN1_INTEGER)
                     + tlvSize(integerContentLength(y, kCoordinate), V_ASN1_INTEGER)
                     + tlvSize(kHash, V_ASN1_OCTET_STRING) + tlvSize(kKeyCipher, V_ASN1_OCTET_STRING);
    QByteArray der(tlvSize(body, V_ASN1_SEQUENCE), Qt::Uninitialized);
    auto *out = reinterpret_cast<unsigned char *>(der.data());
    putHeader(&out, true, body, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    putInteger(&out, x, kCoordinate);
    putInteger(&out, y, kCoordinate);
    putPrimitive(&out, V_ASN1_OCTET_STRING, hash, kHash);
    putPrimitive(&out, V_ASN1_OCTET_STRING, cipher, kKeyCipher);
    return der;
}

// The whole encoding of child `index` of the certificate's tbsCertificate.
bool tbsField(const QByteArray &certificate, int index, const unsigned char **field, long *size)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(certificate.constData());
    const unsigned char *tbs = nullptr;
    long tbsLength = 0;
    if (!derDescend(bytes, certificate.size(), {0}, &tbs, &tbsLength))
        return false;
    const unsigned char *cursor = tbs;
    const unsigned char *end = tbs + tbsLength;
    for (int i = 0; cursor < end; ++i) {
        const unsigned char *start = cursor;
        long length = 0;
        int tag = 0;
        int tagClass = 0;
        if (ASN1_get_object(&cursor, &length, &tag, &tagClass, end - cursor) & 0x80)
            return false;
        cursor += length;
        if (i == index) {
            *field = start;
            *size = cursor - start;
            return true;
        }
    }
    return false;
}

QByteArray buildDirectly(const EnvelopeInputs &in)
{
    const unsigned char *serial = nullptr;
    const unsigned char *issuer = nullptr;
    long serialSize = 0;
    long issuerSize = 0;
    if (!tbsField(in.certificate, 1, &serial, &serialSize)
        || !tbsField(in.certificate, 3, &issuer, &issuerSize))
        return QByteArray();
    const QByteArray encryptedKey = sm2CipherDer(in.packedKey);
    const int contentSize = in.content.size();

    const int issuerAndSerial = int(issuerSize + serialSize);
    const int keyAlgorithm = tlvSize(kSm2EncryptionOid.size(), V_ASN1_OBJECT);
    const int recipient = tlvSize(1, V_ASN1_INTEGER) + tlvSize(issuerAndSerial, V_ASN1_SEQUENCE)
                          + tlvSize(keyAlgorithm, V_ASN1_SEQUENCE)
                          + tlvSize(encryptedKey.size(), V_ASN1_OCTET_STRING);
    const int recipients = tlvSize(recipient, V_ASN1_SEQUENCE);
    const int contentAlgorithm = tlvSize(kSm4EcbOid.size(), V_ASN1_OBJECT);
    const int encrypted = tlvSize(contentSize, V_ASN1_OCTET_STRING);
    const int info = tlvSize(kDataOid.size(), V_ASN1_OBJECT)
                     + tlvSize(contentAlgorithm, V_ASN1_SEQUENCE) + tlvSize(encrypted, 0);
    const int envelopedData = tlvSize(1, V_ASN1_INTEGER) + tlvSize(recipients, V_ASN1_SET)
                              + tlvSize(info, V_ASN1_SEQUENCE);
    const int explicitContent = tlvSize(envelopedData, V_ASN1_SEQUENCE);
    const int contentInfo = tlvSize(kEnvelopedDataOid.size(), V_ASN1_OBJECT)
                            + tlvSize(explicitContent, 0);

    QByteArray der(tlvSize(contentInfo, V_ASN1_SEQUENCE), Qt::Uninitialized);
    auto *out = reinterpret_cast<unsigned char *>(der.data());
    const char one = 1;
    putHeader(&out, true, contentInfo, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    putPrimitive(&out, V_ASN1_OBJECT, kEnvelopedDataOid.constData(), kEnvelopedDataOid.size());
    putHeader(&out, true, explicitContent, 0, V_ASN1_CONTEXT_SPECIFIC);
    putHeader(&out, true, envelopedData, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    putPrimitive(&out, V_ASN1_INTEGER, &one, 1);
    putHeader(&out, true, recipients, V_ASN1_SET, V_ASN1_UNIVERSAL);
    putHeader(&out, true, recipient, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    putPrimitive(&out, V_ASN1_INTEGER, &one, 1);
    putHeader(&out, true, issuerAndSerial, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    std::memcpy(out, issuer, std::size_t(issuerSize));
    out += issuerSize;
    std::memcpy(out, serial, std::size_t(serialSize));
    out += serialSize;
    putHeader(&out, true, keyAlgorithm, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    putPrimitive(&out, V_ASN1_OBJECT, kSm2EncryptionOid.constData(), kSm2EncryptionOid.size());
    putPrimitive(&out, V_ASN1_OCTET_STRING, encryptedKey.constData(), encryptedKey.size());
    putHeader(&out, true, info, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    putPrimitive(&out, V_ASN1_OBJECT, kDataOid.constData(), kDataOid.size());
    putHeader(&out, true, contentAlgorithm, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    putPrimitive(&out, V_ASN1_OBJECT, kSm4EcbOid.constData(), kSm4EcbOid.size());
    putHeader(&out, true, encrypted, 0, V_ASN1_CONTEXT_SPECIFIC);
    putPrimitive(&out, V_ASN1_OCTET_STRING, in.content.constData(), contentSize);
    return der;
}

// The packed key and the content, read back as load() and GetEncKeyData() hand them out.
bool walkDirectly(const QByteArray &der, QByteArray *packed, QByteArray *content)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(der.constData());
    const unsigned char *key = nullptr;
    long keyLength = 0;
    const unsigned char *body = nullptr;
    long bodyLength = 0;
    if (!derDescend(bytes, der.size(), {1, 0, 1, 0, 3}, &key, &keyLength)
        || !derDescend(bytes, der.size(), {1, 0, 2, 2, 0}, &body, &bodyLength))
        return false;
    *content = QByteArray(reinterpret_cast<const char *>(body), int(bodyLength));
    packed->clear();
    for (int field = 0; field < 4; ++field) {
        const unsigned char *value = nullptr;
        long length = 0;
        if (!derDescend(key, keyLength, {field}, &value, &length))
            return false;
        const long keep = field < 2 && length > kCoordinate ? kCoordinate : length;
        packed->append(reinterpret_cast<const char *>(value + length - keep), int(keep));
    }
    return true;
}

QByteArray buildWithLibrary(const EnvelopeInputs &in)
{
    ZtEnvelopeData envelope;
    envelope.SetRecCert(in.certificate);
    envelope.SetEncKeyData(in.packedKey);
    envelope.SetEncContent(in.content);
    return envelope.build();
}

bool walkWithLibrary(const QByteArray &der, QByteArray *packed, QByteArray *content)
{
    ZtEnvelopeData envelope;
    if (!envelope.load(der))
        return false;
    *packed = envelope.GetEncKeyData();
    *content = envelope.GetEncContent();
    return true;
}

} // namespace

void registerEnvelopeBenchmarks(int repetitions)
{
    // The library's objects in this program get the same host core as the plug-in.
    zthost::HostCore &core = DecodeWorld::instance().core();
    ComponentInit(&core);

    const EnvelopeInputs &in = inputs();
    const QByteArray mine = buildWithLibrary(in);
    core.reclaim();
    if (mine.isEmpty() || mine != buildDirectly(in))
        benchFatal(QStringLiteral("the library's envelope and the direct one differ"));
    QByteArray packed, content, directPacked, directContent;
    const bool walked = walkWithLibrary(mine, &packed, &content);
    core.reclaim();
    if (!walked || !walkDirectly(mine, &directPacked, &directContent) || packed != directPacked
        || content != directContent || packed != in.packedKey || content != in.content)
        benchFatal(QStringLiteral("the library and the direct walk read the envelope differently"));

    for (int r = 0; r < repetitions; ++r) {
        benchRegister("envelope_build/library", kEnvelopeContentSize, [](benchmark::State &state) {
            zthost::HostCore &core = DecodeWorld::instance().core();
            for (auto _ : state) {
                benchmark::DoNotOptimize(buildWithLibrary(inputs()));
                core.reclaim();
            }
        })->MinTime(0.2);
        benchRegister("envelope_build/baseline", kEnvelopeContentSize, [](benchmark::State &state) {
            for (auto _ : state)
                benchmark::DoNotOptimize(buildDirectly(inputs()));
        })->MinTime(0.2);
        benchRegister("envelope_load/library", kEnvelopeContentSize, [](benchmark::State &state) {
            static const QByteArray der = buildDirectly(inputs());
            zthost::HostCore &core = DecodeWorld::instance().core();
            for (auto _ : state) {
                QByteArray packed, content;
                benchmark::DoNotOptimize(walkWithLibrary(der, &packed, &content));
                core.reclaim();
            }
        })->MinTime(0.2);
        benchRegister("envelope_load/baseline", kEnvelopeContentSize, [](benchmark::State &state) {
            static const QByteArray der = buildDirectly(inputs());
            for (auto _ : state) {
                QByteArray packed, content;
                benchmark::DoNotOptimize(walkDirectly(der, &packed, &content));
            }
        })->MinTime(0.2);
    }
}
