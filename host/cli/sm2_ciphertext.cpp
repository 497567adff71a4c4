// Parses untrusted DER: every length is checked against what remains before it is used.
#include "sm2_ciphertext.h"

#include <openssl/asn1.h>

namespace zthost::cli {

namespace {
// ASN1_get_object sets this bit in its answer when the header is malformed or overruns.
constexpr int kAsn1HeaderError = 0x80;

enum class Form { Primitive, Constructed };

// One TLV at a time from a bounded window of the input.
class DerReader
{
public:
    DerReader(const unsigned char *data, long size) : m_next(data), m_remaining(size) {}

    long remaining() const { return m_remaining; }

    // The content of the next element when it is universal `tag` in `form`. False with
    // `error` naming `what`.
    bool take(int tag, Form form, const char *what, const unsigned char **content,
              long *length, QString *error)
    {
        if (m_remaining <= 0) {
            *error = QStringLiteral("SM2 ciphertext: %1 is missing").arg(QLatin1String(what));
            return false;
        }
        const unsigned char *start = m_next;
        const unsigned char *p = m_next;
        long contentLength = 0;
        int foundTag = 0;
        int foundClass = 0;
        const int flags = ASN1_get_object(&p, &contentLength, &foundTag, &foundClass, m_remaining);
        if (flags & kAsn1HeaderError) {
            *error = QStringLiteral("SM2 ciphertext: %1 has a malformed header or a length past "
                                    "the %2 bytes left")
                         .arg(QLatin1String(what))
                         .arg(m_remaining);
            return false;
        }
        const Form foundForm = (flags & V_ASN1_CONSTRUCTED) ? Form::Constructed : Form::Primitive;
        if (foundClass != V_ASN1_UNIVERSAL || foundTag != tag || foundForm != form) {
            *error = QStringLiteral("SM2 ciphertext: %1 has tag %2, expected %3")
                         .arg(QLatin1String(what))
                         .arg(foundTag)
                         .arg(tag);
            return false;
        }
        const long headerLength = long(p - start);
        *content = p;
        *length = contentLength;
        m_next = p + contentLength;
        m_remaining -= headerLength + contentLength;
        return true;
    }

private:
    const unsigned char *m_next;
    long m_remaining;
};

QByteArray bytes(const unsigned char *data, long length)
{
    return QByteArray(reinterpret_cast<const char *>(data), int(length));
}

// A positive DER INTEGER's content without its sign octet or any zero octets in front.
bool magnitudeOf(const unsigned char *content, long length, const char *what, QByteArray *out,
                 QString *error)
{
    if (length == 0 || (content[0] & 0x80)) {
        *error = QStringLiteral("SM2 ciphertext: %1 is not a positive INTEGER (%2 content bytes)")
                     .arg(QLatin1String(what))
                     .arg(length);
        return false;
    }
    long first = 0;
    while (first < length && content[first] == 0)
        ++first;
    *out = bytes(content + first, length - first);
    return true;
}
} // namespace

bool parseSm2Ciphertext(const QByteArray &der, Sm2Ciphertext *ciphertext, QString *error)
{
    const auto *data = reinterpret_cast<const unsigned char *>(der.constData());
    DerReader outer(data, der.size());
    const unsigned char *content = nullptr;
    long length = 0;
    if (!outer.take(V_ASN1_SEQUENCE, Form::Constructed, "the SEQUENCE", &content, &length, error))
        return false;
    ciphertext->derSize = der.size() - int(outer.remaining());

    DerReader fields(content, length);
    const unsigned char *value = nullptr;
    long valueLength = 0;
    if (!fields.take(V_ASN1_INTEGER, Form::Primitive, "x", &value, &valueLength, error)
        || !magnitudeOf(value, valueLength, "x", &ciphertext->x, error))
        return false;
    if (!fields.take(V_ASN1_INTEGER, Form::Primitive, "y", &value, &valueLength, error)
        || !magnitudeOf(value, valueLength, "y", &ciphertext->y, error))
        return false;
    if (!fields.take(V_ASN1_OCTET_STRING, Form::Primitive, "hash", &value, &valueLength, error))
        return false;
    ciphertext->hash = bytes(value, valueLength);
    if (!fields.take(V_ASN1_OCTET_STRING, Form::Primitive, "cipherText", &value, &valueLength, error))
        return false;
    ciphertext->cipherText = bytes(value, valueLength);
    if (fields.remaining() != 0) {
        *error = QStringLiteral("SM2 ciphertext: %1 bytes follow cipherText inside the SEQUENCE")
                     .arg(fields.remaining());
        return false;
    }
    return true;
}

bool hasFullLengthCoordinates(const Sm2Ciphertext &ciphertext)
{
    return ciphertext.x.size() == PackedKey::kCoordinateSize
           && ciphertext.y.size() == PackedKey::kCoordinateSize;
}

QByteArray packKeyData(const Sm2Ciphertext &ciphertext, QString *error)
{
    struct Field
    {
        const char *name;
        const QByteArray &value;
        int expected;
    };
    const Field fields[] = {
        {"x", ciphertext.x, PackedKey::kCoordinateSize},
        {"y", ciphertext.y, PackedKey::kCoordinateSize},
        {"hash", ciphertext.hash, PackedKey::kHashSize},
        {"cipherText", ciphertext.cipherText, PackedKey::kCipherTextSize},
    };
    QByteArray packed;
    packed.reserve(PackedKey::kSize);
    for (const Field &field : fields) {
        if (field.value.size() != field.expected) {
            *error = QStringLiteral("SM2 ciphertext: %1 is %2 bytes, expected %3")
                         .arg(QLatin1String(field.name))
                         .arg(field.value.size())
                         .arg(field.expected);
            return QByteArray();
        }
        packed += field.value;
    }
    return packed;
}

} // namespace zthost::cli
