#include "zt_cryptographic.h"

#include "agents.h"
#include "crypto_error.h"

ZtCryptographic::ZtCryptographic(QObject *parent)
    : QObject(parent), m_signatureManager(new ZtSignatureManagerAgent(this))
{
}

// The key in m_userKey is the host's and stays open; its agent is not deleted either, one of
// the library's deliberate leaks (WebOpenKey drops earlier agents the same way).
ZtCryptographic::~ZtCryptographic() = default;

QString ZtCryptographic::WebGetLastErrorMsg()
{
    // The message passes through the locale's codec and back to UTF-8, as hosts have always
    // received it: intact when the host's locale codec is UTF-8 (Qt's default on this
    // platform), one character per byte under a Latin-1 codec.
    const QString local = QString::fromLocal8Bit(ZtCryptoGetErrMessage());
    const QByteArray utf8 = local.toUtf8();
    return QString::fromUtf8(utf8.constData());
}
