#include "bridge/web_bridge.h"

#include "bridge/approved_origin.h"
#include "bridge/front_door.h"
#include "bridge/message_gate.h"
#include "bridge/page_files.h"
#include "bridge/page_session.h"
#include "bridge/peer_text.h"
#include "bridge/scriptable_facade.h"

#include "core/host_log.h"
#include "session/scriptable_source.h"

#include <QUrlQuery>
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

QString modeName(BridgeMode mode)
{
    return mode == BridgeMode::Service ? QStringLiteral("service") : QStringLiteral("token");
}

// An allow-list as the log shows it.
QString listText(const OriginAllowList &origins)
{
    return origins.origins().isEmpty() ? QStringLiteral("none")
                                       : origins.origins().join(QLatin1String(", "));
}

} // namespace

WebBridge::WebBridge(ScriptableSource &objects, BridgeOptions options, HostLog *log,
                     QObject *parent)
    : QObject(parent),
      m_objects(objects),
      m_options(std::move(options)),
      m_log(log),
      m_token(AccessToken::generate()),
      m_gate(std::make_unique<MessageGate>(&ScriptableFacade::staticMetaObject,
                                           QLatin1String(kObjectId),
                                           ScriptableFacade::methodNames())),
      m_webSockets(std::make_unique<QWebSocketServer>(QStringLiteral("zthost"),
                                                      QWebSocketServer::NonSecureMode))
{
    m_webSockets->setHandshakeTimeout(std::chrono::milliseconds(kHandshakeTimeoutMs));
    connect(m_webSockets.get(), &QWebSocketServer::originAuthenticationRequired, this,
            &WebBridge::judgeOrigin);
    connect(m_webSockets.get(), &QWebSocketServer::newConnection, this,
            &WebBridge::acceptWebSockets);
    FrontDoor::Setup setup;
    setup.mode = m_options.mode;
    setup.maxMessageBytes = m_options.maxMessageBytes;
    m_frontDoor = std::make_unique<FrontDoor>(
        m_webSockets.get(), &m_token, PageFiles(m_options.webRoot), setup,
        [this] { return clientCount() < m_options.maxClients; },
        [this](const QString &line) { note(line); });
}

WebBridge::~WebBridge()
{
    // Pages first, while the plug-in their objects come from still exists.
    const QSet<PageSession *> sessions = m_sessions;
    m_sessions.clear();
    qDeleteAll(sessions);
    m_frontDoor.reset();
    m_webSockets.reset();
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
    OriginAllowList extra;
    if (m_options.mode == BridgeMode::Token) {
        if (!PageFiles(m_options.webRoot).isComplete(error))
            return false;
        for (const QString &origin : m_options.extraOrigins) {
            if (!extra.add(origin, error))
                return false;
        }
    } else {
        for (const QString &origin : m_options.approvedOrigins) {
            ApprovedOrigin approved;
            if (!ApprovedOrigin::parse(origin, &approved, error))
                return false;
            extra.add(approved.origin);
        }
    }
    if (!m_frontDoor->listen(m_options.port, error))
        return false;
    if (m_options.mode == BridgeMode::Token)
        m_origins.add(origin());
    for (const QString &origin : extra.origins())
        m_origins.add(origin);
    if (m_log)
        m_log->debug(QStringLiteral("bridge: %1 mode, listening on %2, origins allowed: %3")
                         .arg(modeName(m_options.mode), origin(),
                              m_origins.origins().join(QLatin1String(", "))));
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
    QUrl url(QStringLiteral("ws://127.0.0.1:%1%2")
                 .arg(port())
                 .arg(QLatin1String(FrontDoor::kWebSocketPath)));
    return m_options.mode == BridgeMode::Token ? withToken(url, m_token) : url;
}

QList<QObject *> WebBridge::publishedObjects() const
{
    QList<QObject *> objects;
    for (PageSession *session : m_sessions)
        objects << session->facade();
    return objects;
}

void WebBridge::note(const QString &line)
{
    // Every refusal passes here: whatever a peer put where, the token does not reach the log.
    if (m_log)
        m_log->warning(QStringLiteral("bridge: ") + withoutToken(line, m_token));
}

void WebBridge::judgeOrigin(QWebSocketCorsAuthenticator *authenticator)
{
    // A service page is judged once the handshake is done, so that its script learns why it
    // was refused (4403).
    if (m_options.mode == BridgeMode::Service) {
        authenticator->setAllowed(true);
        return;
    }
    const bool allowed = m_origins.allows(authenticator->origin());
    authenticator->setAllowed(allowed);
    if (!allowed) {
        note(QStringLiteral("refused a WebSocket from origin \"%1\": not on the allow-list")
                 .arg(peerText(authenticator->origin(), m_token)));
    }
}

bool WebBridge::refuses(QWebSocket *socket, QString *line, int *code, QString *reason) const
{
    // The front door checked the room already; a second look costs nothing and keeps the
    // WebSocket server from ever being the only guard.
    if (m_options.mode == BridgeMode::Token) {
        const QString token = QUrlQuery(socket->requestUrl())
                                  .queryItemValue(QStringLiteral("token"), QUrl::FullyDecoded);
        if (!m_token.matches(token)) {
            // The token is never logged: it is what lets a page in.
            *line = QStringLiteral("refused a WebSocket without the right token (%1)").arg(kTokenRefusedCode);
            *code = kTokenRefusedCode;
            *reason = QLatin1String(kTokenRefusedReason);
            return true;
        }
    } else if (!m_origins.allows(socket->origin())) {
        const QString origin = peerText(socket->origin(), m_token);
        ApprovedOrigin approvable;
        QString problem;
        if (socket->origin().isEmpty())
            *line = QStringLiteral("refused a page that sent no origin (%1)").arg(kOriginRefusedCode);
        else if (ApprovedOrigin::parse(socket->origin(), &approvable, &problem))
            *line = QStringLiteral("refused a page from origin \"%1\": not approved; approve it "
                                   "with zthost origins add %2")
                        .arg(origin, peerText(approvable.origin, m_token));
        else
            *line = QStringLiteral("refused a page from origin \"%1\": not approved, and not an "
                                   "origin the service can approve")
                        .arg(origin);
        *code = kOriginRefusedCode;
        *reason = QLatin1String(kOriginRefusedReason);
        return true;
    }
    if (clientCount() >= m_options.maxClients) {
        *line = QStringLiteral("closed a WebSocket: too many clients");
        *code = QWebSocketProtocol::CloseCodePolicyViolated;
        *reason = QStringLiteral("too many clients");
        return true;
    }
    return false;
}

void WebBridge::refuse(QWebSocket *socket, const QString &line, int code, const QString &reason)
{
    note(line);
    // Nothing of the page is read: its messages have no receiver, and the socket goes once
    // the close frame is out.
    socket->close(QWebSocketProtocol::CloseCode(code), reason);
    socket->deleteLater();
}

void WebBridge::refreshApprovedOrigins()
{
    if (m_options.mode != BridgeMode::Service || !m_options.approvedOriginsUpdate)
        return;
    QString problem;
    const std::optional<QStringList> now = m_options.approvedOriginsUpdate(&problem);
    OriginAllowList origins;
    for (const QString &origin : now ? *now : QStringList()) {
        ApprovedOrigin approved;
        if (!ApprovedOrigin::parse(origin, &approved, &problem))
            break;
        origins.add(approved.origin);
    }
    if (!problem.isEmpty()) {
        note(QStringLiteral("kept the approved origins (%1): %2").arg(listText(m_origins), problem));
        return;
    }
    if (!now)
        return;
    m_origins = origins;
    if (m_log)
        m_log->debug(QStringLiteral("bridge: approved origins now: %1").arg(listText(m_origins)));
}

void WebBridge::acceptWebSockets()
{
    refreshApprovedOrigins();
    while (QWebSocket *socket = m_webSockets->nextPendingConnection()) {
        QString line;
        QString reason;
        int code = 0;
        if (refuses(socket, &line, &code, &reason)) {
            refuse(socket, line, code, reason);
            continue;
        }
        QString error;
        std::unique_ptr<ScriptableCalls> scriptable = m_objects.createScriptable(&error);
        if (!scriptable) {
            refuse(socket, QStringLiteral("closed a WebSocket: %1").arg(error),
                   QWebSocketProtocol::CloseCodeBadOperation,
                   QStringLiteral("the host could not make a session"));
            continue;
        }
        // The frame relay refuses larger messages first, with the limit in its reason; Qt's
        // own limits stay as a second guard.
        socket->setMaxAllowedIncomingFrameSize(quint64(m_options.maxMessageBytes));
        socket->setMaxAllowedIncomingMessageSize(quint64(m_options.maxMessageBytes));
        const QString origin = peerText(socket->origin(), m_token);

        auto *session = new PageSession(socket, std::move(scriptable), m_gate.get(),
                                        [this](const QString &line) { note(line); },
                                        m_options.maxMessageBytes, modeName(m_options.mode));
        m_sessions.insert(session);
        // Later, not inside the socket's own signal: leaving deletes the socket.
        connect(session, &PageSession::closed, session, [this, session] { pageLeft(session); },
                Qt::QueuedConnection);
        if (m_log)
            m_log->debug(QStringLiteral("bridge: a page connected from %1, %2 connected")
                             .arg(origin)
                             .arg(clientCount()));
        emit clientCountChanged(clientCount());
    }
}

void WebBridge::pageLeft(PageSession *session)
{
    if (!m_sessions.remove(session))
        return;
    const QString closeAnswer = session->finish();
    if (m_log)
        m_log->debug(QStringLiteral("bridge: a page disconnected: WebCloseKey answered %1, its "
                                    "scriptable object deleted, %2 left")
                         .arg(closeAnswer)
                         .arg(clientCount()));
    session->deleteLater();
    emit clientCountChanged(clientCount());
}

} // namespace zthost::bridge
