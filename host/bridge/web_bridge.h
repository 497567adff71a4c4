#pragma once

#include "bridge/access_token.h"
#include "bridge/bridge_options.h"
#include "bridge/origin_allow_list.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class QWebChannel;
class QWebSocketServer;
class QWebSocketCorsAuthenticator;

namespace zthost {
class HostLog;
class ScriptableCalls;
} // namespace zthost

namespace zthost::bridge {

class FrontDoor;
class MessageGate;
class ScriptableFacade;
class WebSocketTransport;

// `zthost serve`: the scriptable object's seven methods for a page in a browser, through Qt
// WebChannel over a WebSocket on 127.0.0.1. One port serves both the page and the WebSocket,
// so the page's origin is the bridge's own, http://127.0.0.1:PORT.
//
// A WebSocket is accepted only with the token of the printed address, from an allowed Origin,
// while fewer than maxClients are connected. Every call runs on the thread of the bridge's
// event loop, one at a time, as the plug-in expects.
class WebBridge : public QObject
{
    Q_OBJECT

public:
    // The name pages reach the object by: channel.objects.ZtCryptographic.
    static constexpr const char *kObjectId = "ZtCryptographic";

    // `calls` reaches the plug-in's object (the host session; not owned, must outlive the
    // bridge). `log` (not owned, may be null) receives refusals
    // and drops as warnings and connections as debug lines; it never receives a message's
    // text, a token or a PIN.
    WebBridge(ScriptableCalls &calls, BridgeOptions options, HostLog *log,
              QObject *parent = nullptr);
    ~WebBridge() override;

    // Starts listening. False with `error` set when the page or Qt WebChannel's script is
    // missing, an extra origin is not an origin, or the port cannot be bound.
    bool start(QString *error);

    quint16 port() const;
    QString origin() const;
    // http://127.0.0.1:PORT/?token=TOKEN: what the user opens.
    QUrl pageUrl() const;
    // ws://127.0.0.1:PORT/bridge?token=TOKEN: what the page connects to.
    QUrl webSocketUrl() const;
    const AccessToken &token() const { return m_token; }
    const OriginAllowList &allowedOrigins() const { return m_origins; }
    int clientCount() const { return m_transports.size(); }
    // The published object, for tests that check it cannot be renamed or deleted.
    QObject *publishedObject() const;

signals:
    void clientCountChanged(int count);

private:
    void judgeOrigin(QWebSocketCorsAuthenticator *authenticator);
    void acceptWebSockets();
    void note(const QString &line);

    BridgeOptions m_options;
    HostLog *m_log;
    AccessToken m_token;
    OriginAllowList m_origins;
    std::unique_ptr<ScriptableFacade> m_facade;
    std::unique_ptr<MessageGate> m_gate;
    std::unique_ptr<QWebChannel> m_channel;
    std::unique_ptr<QWebSocketServer> m_webSockets;
    std::unique_ptr<FrontDoor> m_frontDoor;
    QSet<WebSocketTransport *> m_transports;
};

} // namespace zthost::bridge
