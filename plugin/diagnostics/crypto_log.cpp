#include "crypto_log.h"

#include "log_file.h"

#include <QDateTime>

namespace {
// Fixed under /tmp, not the temporary directory: the log readers look there.
const char kCryptoLogFolder[] = "/tmp/ZtEncodeLog/";
const char kCryptoLogFile[] = "ZtCryptographic.log";

QByteArray cryptoLogStamp()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")).toUtf8();
}
} // namespace

void _logCrypto(QString message)
{
    appendLogLine(QLatin1String(kCryptoLogFolder), QLatin1String(kCryptoLogFile), cryptoLogStamp,
                  " [] - ", message);
}
