#include "openssl_handles_p.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

namespace zthost::sealing {

namespace {
// ERR_error_string_n writes at most this much, its terminating zero included.
constexpr size_t kReasonTextSize = 256;
} // namespace

QString openSslReason()
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (!code)
        return QStringLiteral("no reason given");
    char text[kReasonTextSize];
    ERR_error_string_n(code, text, sizeof text);
    return QString::fromLatin1(text);
}

const unsigned char *bytesOf(const QByteArray &array)
{
    return reinterpret_cast<const unsigned char *>(array.constData());
}

QByteArray takeI2d(int length, unsigned char *der)
{
    QByteArray bytes;
    if (length > 0 && der)
        bytes = QByteArray(reinterpret_cast<const char *>(der), length);
    OPENSSL_free(der);
    return bytes;
}

} // namespace zthost::sealing
