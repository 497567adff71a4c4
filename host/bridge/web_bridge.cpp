#include "bridge/web_bridge.h"

#include "bridge/front_door.h"
#include "bridge/message_gate.h"
#include "bridge/page_files.h"
#include "bridge/peer_text.h"
#include "bridge/scriptable_facade.h"
#include "bridge/websocket_transport.h"

#include "core/host_log.h"

#include <QUrlQuery>
#include <QWebChannel>
#include <QWebSocket>
#include <QWebSocketCorsAuthenticator>
#include <QWebSocketServer>

namespace zthost::bridge {

namespace {

// A WebSocket handshake not finished by then is dropped by the WebSocket server.
constexpr int kHandshakeTimeoutMs = 10'000;

QUrl withToken(QUrl url, const AccessToken &token)
{
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("token"), token.text());
    url.setQuery(query);
    return url;
}

} // namespace

WebBridge::WebBridge(ScriptableCalls &calls, BridgeOptions options, HostLog *log,
                     QObject *parent)
    : QObject(parent),
      m_options(std::move(options)),
      m_log(log),
      m_token(AccessToken::generate()),
      m_facade(std::make_unique<ScriptableFacade>(calls)),
      m_gate(std::make_unique<MessageGate>(&ScriptableFacade::staticMetaObject,
                                           QLatin1String(kObjectId),
                                           ScriptableFacade::methodNames())),
      m_channel(std::make_unique<QWebChannel>()),
      m_webSockets(std::make_unique<QWebSocketServer>(QStringLiteral("zthost"),
                                                      QWebSocketServer::NonSecureMode))
{
    m_facade->setObjectName(QLatin1String(kObjectId));
    m_channel->registerObject(QLatin1String(kObjectId), m_facade.get());
    m_webSockets->setHandshakeTimeout(std::chrono::milliseconds(kHandshakeTimeoutMs));
    connect(m_webSockets.get(), &QWebSocketServer::originAuthenticationRequired, this,
            &WebBridge::judgeOrigin);
    connect(m_webSockets.get(), &QWebSocketServer::newConnection, this,
            &WebBridge::acceptWebSockets);
    m_frontDoor = std::make_unique<FrontDoor>(
        m_webSockets.get(), &m_token, PageFiles(m_options.webRoot),
        [this] { return clientCount() < m_options.maxClients; },
        [this](const QString &line) { note(line); });
}

WebBridge::~WebBridge()
{
    // Pages first, while the channel and the façade they talk to still exist.
    const QSet<WebSocketTransport *> transports = m_transports;
    m_transports.clear();
    for (WebSocketTransport *transport : transports) {
        if (QWebSocket *socket = transport->socket())
            socket->abort();
        delete transport;
    }
    m_frontDoor.reset();
    m_webSockets.reset();
    m_channel.reset();
}

bool WebBridge::start(QString *error)
{
    if (m_options.maxClients < 1) {
        *error = QStringLiteral("the bridge must take at least 1 client, not %1")
                     .arg(m_options.maxClients);
        return false;
    }
    if (m_options.maxMessageBytes < 1024) {
        *error = QStringLiteral("a message limit of %1 bytes is too small for the channel")
                     .arg(m_options.maxMessageBytes);
        return false;
    }
    if (!PageFiles(m_options.webRoot).isComplete(error))
        return false;
    OriginAllowList extra;
    for (const QString &origin : m_options.extraOrigins) {
        if (!extra.add(origin, error))
            return false;
    }
    if (!m_frontDoor->listen(m_options.port, error))
        return false;
    m_origins.add(origin());
    for (const QString &origin : extra.origins())
        m_origins.add(origin);
    if (m_log)
        m_log->debug(QStringLiteral("bridge: listening on %1, origins allowed: %2")
                         .arg(origin(), m_origins.origins().join(QLatin1String(", "))));
    return true;
}

quint16 WebBridge::port() const
{
    return m_frontDoor->port();
}

QString WebBridge::origin() const
{
    return m_frontDoor->origin();
}

QUrl WebBridge::pageUrl() const
{
    return withToken(QUrl(origin() + QLatin1Char('/')), m_token);
}

QUrl WebBridge::webSocketUrl() const
{
    return withToken(QUrl(QStringLiteral("ws://127.0.0.1:%1%2")
                              .arg(port())
                              .arg(QLatin1String(FrontDoor::kWebSocketPath))),
                     m_token);
}

QObject *WebBridge::publishedObject() const
{
    return m_facade.get();
}

void WebBridge::note(const QString &line)
{
    // Every refusal passes here: whatever a peer put where, the token does not reach the log.
    if (m_log)
        m_log->warning(QStringLiteral("bridge: ") + withoutToken(line, m_token));
}

void WebBridge::judgeOrigin(QWebSocketCorsAuthenticator *authenticator)
{
    const bool allowed = m_origins.allows(authenticator->origin());
    authenticator->setAllowed(allowed);
    if (!allowed) {
        note(QStringLiteral("refused a WebSocket from origin \"%1\": not on the allow-list")
                 .arg(peerText(authenticator->origin(), m_token)));
    }
}

void WebBridge::acceptWebSockets()
{
    while (QWebSocket *socket = m_webSockets->nextPendingConnection()) {
        // The front door checked both already; a second look costs nothing and keeps the
        // WebSocket server from ever being the only guard.
        const QString token =
            QUrlQuery(socket->requestUrl()).queryItemValue(QStringLiteral("token"), QUrl::FullyDecoded);
        const char *refusal = nullptr;
        if (!m_token.matches(token))
            refusal = "wrong or missing token";
        else if (clientCount() >= m_options.maxClients)
            refusal = "too many clients";
        if (refusal) {
            note(QStringLiteral("closed a WebSocket: %1").arg(QLatin1String(refusal)));
            socket->close(QWebSocketProtocol::CloseCodePolicyViolated, QLatin1String(refusal));
            socket->deleteLater();
            continue;
        }
        socket->setMaxAllowedIncomingFrameSize(quint64(m_options.maxMessageBytes));
        socket->setMaxAllowedIncomingMessageSize(quint64(m_options.maxMessageBytes));

        // Room for one answer as large as the largest message, and the smaller ones around it.
        auto *transport = new WebSocketTransport(socket, m_gate.get(),
                                                 [this](const QString &line) { note(line); },
                                                 2 * m_options.maxMessageBytes);
        m_transports.insert(transport);
        connect(transport, &WebSocketTransport::closed, this, [this, transport] {
            if (!m_transports.remove(transport))
                return;
            if (m_log)
                m_log->debug(QStringLiteral("bridge: a page disconnected, %1 left").arg(clientCount()));
            transport->deleteLater();
            emit clientCountChanged(clientCount());
        });
        m_channel->connectTo(transport);
        if (m_log)
            m_log->debug(QStringLiteral("bridge: a page connected from %1, %2 connected")
                             .arg(peerText(socket->origin(), m_token))
                             .arg(clientCount()));
        emit clientCountChanged(clientCount());
    }
}

} // namespace zthost::bridge
