#pragma once

#include "core/host_core.h"
#include "openssl_envelope.h"
#include "session/host_session.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <memory>

// The whole road of WebZtDecode as a host runs it: a software key device provisioned in a
// private root and a host session over the software driver with the built plug-in loaded by
// path, its key opened and PIN verified. Also holds the
// recipient's private key, so that the baseline can do the same work with OpenSSL directly.
//
// One per process; made on first use. Construction aborts the program on any failure: a
// benchmark of a road that does not work measures nothing.
class DecodeWorld
{
public:
    static DecodeWorld &instance();

    // One WebZtDecode by name, as a page calls it; the session reclaims the per-operation
    // components after it, as the host's event loop would.
    QString decode(const QString &base64Envelope);

    // A fresh envelope of `content` for the device's encryption certificate, as Base64 text.
    QString envelopeText(const QByteArray &content) const;

    EVP_PKEY *privateKey() const { return m_privateKey.get(); }
    // The device's root and user PIN, for a zthost process to open the same key.
    QString rootPath() const { return m_root.path(); }
    static QString userPin();
    zthost::HostCore &core() { return m_session->core(); }

private:
    DecodeWorld();

    QTemporaryDir m_root;
    QByteArray m_certificate;
    EvpPkeyPtr m_privateKey;
    std::unique_ptr<zthost::HostSession> m_session;
};

// Content of `size` bytes that is not all one value, so that no step can shortcut it.
QByteArray patternedContent(int size);

// Ends the program with `what` on standard error.
[[noreturn]] void benchFatal(const QString &what);
