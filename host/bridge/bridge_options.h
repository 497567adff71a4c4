#pragma once

#include <QString>
#include <QStringList>

namespace zthost::bridge {

// What `zthost serve` lets a user choose. The bridge listens on 127.0.0.1 only; no option
// changes that.
struct BridgeOptions
{
    // 0: any free port, chosen by the system.
    quint16 port = 0;
    // Origins allowed to open the WebSocket besides the bridge's own http://127.0.0.1:PORT,
    // e.g. "http://localhost:8080". Compared after normalisation (see OriginAllowList).
    QStringList extraOrigins;
    // Connections open at once; one more is refused before its handshake.
    int maxClients = 4;
    // A WebSocket message (or frame) larger than this closes its connection. The default
    // takes an envelope of 12 MiB of content in Base64; each page sending that much costs the
    // bridge about twice it while its message is read and judged (README, web bridge).
    qint64 maxMessageBytes = qint64(16) * 1024 * 1024;
    // The folder of the page's files (index.html, page.js, style.css, favicon.svg).
    QString webRoot;
};

} // namespace zthost::bridge
