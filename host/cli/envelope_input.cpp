// Looks at untrusted bytes: only the outer DER header is read, by OpenSSL, within the file.
#include "envelope_input.h"

#include <openssl/asn1.h>

namespace zthost::cli {

namespace {
constexpr char kSequenceIdentifier = 0x30;
constexpr int kAsn1HeaderError = 0x80;

bool isOneDerSequence(const QByteArray &file)
{
    if (file.isEmpty() || file.at(0) != kSequenceIdentifier)
        return false;
    const auto *start = reinterpret_cast<const unsigned char *>(file.constData());
    const unsigned char *p = start;
    long length = 0;
    int tag = 0;
    int xclass = 0;
    if (ASN1_get_object(&p, &length, &tag, &xclass, file.size()) & kAsn1HeaderError)
        return false;
    return (p - start) + length == file.size();
}
} // namespace

QString envelopeAsBase64(const QByteArray &file)
{
    if (isOneDerSequence(file))
        return QString::fromLatin1(file.toBase64());
    return QString::fromLatin1(file.trimmed());
}

} // namespace zthost::cli
