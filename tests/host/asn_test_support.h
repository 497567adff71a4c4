#pragma once

// Small helpers shared by the ASN.1 component's tests.

#include "asn/asn_block.h"

#include <QByteArray>
#include <QMetaMethod>
#include <QMetaObject>
#include <QStringList>

#include <openssl/asn1.h>

#include <cstring>
#include <string>

namespace asntest {

// Byte arrays are compared as hexadecimal text, which reads well when a comparison fails.
inline std::string hex(const QByteArray &bytes)
{
    return bytes.toHex().toStdString();
}

inline QByteArray bytes(const char *hexText)
{
    return QByteArray::fromHex(hexText);
}

inline zthost::AsnBlock *asBlock(QObject *object)
{
    return qobject_cast<zthost::AsnBlock *>(object);
}

// One value with a minimal definite length, encoded by OpenSSL, so that the tests do not rely on
// the component's own length encoder to make their inputs.
inline QByteArray tlv(int identifier, const QByteArray &content)
{
    const int constructed = (identifier & V_ASN1_CONSTRUCTED) != 0 ? 1 : 0;
    const int size = ASN1_object_size(constructed, content.size(), identifier & 0x1F);
    QByteArray out(size, '\0');
    auto *cursor = reinterpret_cast<unsigned char *>(out.data());
    ASN1_put_object(&cursor, constructed, content.size(), identifier & 0x1F, identifier & 0xC0);
    memcpy(cursor, content.constData(), content.size());
    return out;
}

// A NULL wrapped in SEQUENCEs so that the NULL sits `levels` deep (the outermost value is 1).
inline QByteArray nested(int levels)
{
    QByteArray value = bytes("0500");
    for (int level = 1; level < levels; ++level)
        value = tlv(0x30, value);
    return value;
}

// "name(types)" of each invokable method, with its return type, as the dispatcher sees them.
inline QStringList invokableSignatures(const QMetaObject &meta)
{
    QStringList signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        if (method.methodType() == QMetaMethod::Method)
            signatures << QString::fromLatin1(method.typeName() + QByteArray(" ")
                                              + method.methodSignature());
    }
    return signatures;
}

} // namespace asntest
