#include "crypto_error.h"

#include "error_messages.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

static_assert(sizeof(unsigned long) == 8, "the error code holds 64 bits");

namespace {
unsigned long g_errCode = 0;
} // namespace

void SetCryptoErrorCode(unsigned long code)
{
    g_errCode = code;
}

const char *ZtCryptoGetErrMessage()
{
    if (const char *message = errorMessageFor(g_errCode))
        return message;

    // Callers turn the pointer into a string at once; one buffer per thread keeps it valid
    // until this thread asks again.
    thread_local QByteArray fallback;
    const qlonglong low32 = static_cast<std::int32_t>(static_cast<std::uint32_t>(g_errCode));
    fallback = QStringLiteral("errorcode : [%1]").arg(low32, 0, 10, QLatin1Char(' ')).toUtf8();
    return fallback.constData();
}
