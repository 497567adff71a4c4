#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace zthost::bridge {

// Who the bridge lets in (docs/BRIDGE_PROTOCOL.md).
enum class BridgeMode {
    // The built-in page: a random token in the printed address, the bridge's own origin.
    Token,
    // `zthost serve --service`: pages of approved origins, no token, no page of its own.
    Service,
};

// The service's port when neither --port nor the configuration file names one. Pages of
// approved sites find the service here (docs/BRIDGE_PROTOCOL.md).
constexpr quint16 kDefaultServicePort = 19731;

// What `zthost serve` lets a user choose. The bridge listens on 127.0.0.1 only; no option
// changes that.
struct BridgeOptions
{
    BridgeMode mode = BridgeMode::Token;
    // 0: any free port, chosen by the system.
    quint16 port = 0;
    // Service mode: the origins whose pages may connect, each as ApprovedOrigin::parse reads
    // it; compared exactly after normalisation.
    QStringList approvedOrigins;
    // Service mode, optional: asked before the pages that just connected are judged. Answers
    // the approved origins when they changed since it was last asked (the user approved or
    // removed a site), else nothing; when they changed but cannot be taken, nothing, with
    // `problem` saying why, and the bridge keeps the ones it has.
    std::function<std::optional<QStringList>(QString *problem)> approvedOriginsUpdate;
    // Token mode: origins allowed to open the WebSocket besides the bridge's own http://127.0.0.1:PORT,
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
