#pragma once

#include <QString>
#include <QStringList>

namespace zthost::bridge {

// The web origins allowed to open the bridge's WebSocket. A browser always sends the Origin of
// the page that opens a WebSocket, and a page cannot forge it: this is what keeps a page of
// another site, open in the same browser, away from the key.
class OriginAllowList
{
public:
    // Lower-case scheme and host, default port dropped ("HTTP://127.0.0.1:80" reads
    // "http://127.0.0.1"). Empty when `origin` is not a scheme://host[:port] origin, which
    // includes the "null" of sandboxed and file: pages.
    static QString normalise(const QString &origin);

    // False with `error` set when `origin` does not normalise.
    bool add(const QString &origin, QString *error = nullptr);

    bool allows(const QString &origin) const;
    const QStringList &origins() const { return m_origins; }

private:
    QStringList m_origins;
};

} // namespace zthost::bridge
