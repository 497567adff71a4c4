#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::bridge {

// The secret a page must present to open the WebSocket: it travels only in the address that
// `zthost serve` prints, so a page that was not handed that address cannot call the key.
class AccessToken
{
public:
    // 256 bits from the system's CSPRNG, as unpadded Base64url (43 characters).
    static AccessToken generate();
    // For tests: a token with a known text.
    static AccessToken fromText(const QString &text);

    const QString &text() const { return m_text; }

    // Compares in time independent of where the first difference is; an empty candidate never
    // matches.
    bool matches(const QString &candidate) const;

private:
    explicit AccessToken(QString text) : m_text(std::move(text)) {}

    QString m_text;
};

} // namespace zthost::bridge
