#pragma once

#include "bridge/access_token.h"
#include "bridge/bridge_options.h"
#include "bridge/origin_allow_list.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class QWebSocket;
class QWebSocketServer;
class QWebSocketCorsAuthenticator;

namespace zthost {
class HostLog;
class ScriptableSource;
} // namespace zthost

namespace zthost::bridge {

class FrontDoor;
class MessageGate;
class PageSession;

// `zthost serve`: the scriptable object's seven methods for a page in a browser, through Qt
// WebChannel over a WebSocket on 127.0.0.1 (docs/BRIDGE_PROTOCOL.md).
//
// Token mode: one port serves both the page and the WebSocket, so the page's origin is the
// bridge's own, http://127.0.0.1:PORT; a WebSocket is accepted only with the token of the
// printed address, from an allowed Origin. Service mode: no page and no token; a WebSocket is
// accepted only from an approved Origin. Both: only from this user's own sockets, while fewer
// than maxClients are connected. A refusal a page must tell apart is a close frame sent right
// after the handshake (4401, 4403), with nothing of the page's processed.
//
// Each page gets a scriptable object of its own, made when it connects and, once its key is
// closed, deleted when it goes. Every call runs on the thread of the bridge's event loop, one
// at a time, as the plug-in expects.
class WebBridge : public QObject
{
    Q_OBJECT

public:
    // The name pages reach the object by: channel.objects.ZtCryptographic.
    static constexpr const char *kObjectId = "ZtCryptographic";

    // Close codes and reasons of the refusals a page's script tells apart.
    static constexpr int kTokenRefusedCode = 4401;
    static constexpr const char *kTokenRefusedReason = "token refused";
    static constexpr int kOriginRefusedCode = 4403;
    static constexpr const char *kOriginRefusedReason = "origin not approved";

    // `objects` makes each page's scriptable object (the host session; not owned, must outlive
    // the bridge). `log` (not owned, may be null) receives refusals and drops as warnings and
    // connections as debug lines; it never receives a message's text, a token or a PIN.
    WebBridge(ScriptableSource &objects, BridgeOptions options, HostLog *log,
              QObject *parent = nullptr);
    ~WebBridge() override;

    // Starts listening. False with `error` set when the page or Qt WebChannel's script is
    // missing (token mode), an extra or approved origin is not one, or the port cannot be
    // bound: "cannot listen on 127.0.0.1:PORT: the port is in use by process PID (NAME)" when
    // the system says who holds it.
    bool start(QString *error);

    quint16 port() const;
    QString origin() const;
    // http://127.0.0.1:PORT/?token=TOKEN: what the user opens.
    QUrl pageUrl() const;
    // ws://127.0.0.1:PORT/bridge?token=TOKEN: what the page connects to.
    QUrl webSocketUrl() const;
    const AccessToken &token() const { return m_token; }
    const OriginAllowList &allowedOrigins() const { return m_origins; }
    BridgeMode mode() const { return m_options.mode; }
    int clientCount() const { return m_sessions.size(); }
    // The objects the connected pages call, for tests that check they cannot be renamed or
    // deleted.
    QList<QObject *> publishedObjects() const;

signals:
    void clientCountChanged(int count);

private:
    void judgeOrigin(QWebSocketCorsAuthenticator *authenticator);
    void acceptWebSockets();
    void refreshApprovedOrigins();
    // False when the page may come in; else true with the line to log, the close code and
    // the reason.
    bool refuses(QWebSocket *socket, QString *line, int *code, QString *reason) const;
    void refuse(QWebSocket *socket, const QString &line, int code, const QString &reason);
    void pageLeft(PageSession *session);
    void note(const QString &line);

    ScriptableSource &m_objects;
    BridgeOptions m_options;
    HostLog *m_log;
    AccessToken m_token;
    OriginAllowList m_origins;
    std::unique_ptr<MessageGate> m_gate;
    std::unique_ptr<QWebSocketServer> m_webSockets;
    std::unique_ptr<FrontDoor> m_frontDoor;
    QSet<PageSession *> m_sessions;
};

} // namespace zthost::bridge
