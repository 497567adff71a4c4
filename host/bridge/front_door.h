#pragma once

#include "bridge/access_token.h"
#include "bridge/bridge_options.h"
#include "bridge/page_files.h"

#include <QByteArray>
#include <QObject>
#include <QList>
#include <QTcpServer>

#include <functional>

class QTcpSocket;
class QWebSocketServer;

namespace zthost::bridge {

// The bridge's one listening port on 127.0.0.1: closes a connection from another local user
// once its request head is whole, before any answer (on Linux, where the kernel's socket table
// says who owns the peer's socket), answers GET
// and HEAD for the page's files (token mode only), and hands a WebSocket upgrade to the
// WebSocket server, through a FrameRelay, once its path and Host are right and there is room
// for another client. The token and the Origin are the bridge's to judge, after the handshake,
// so that a refused page learns why.
class FrontDoor : public QObject
{
    Q_OBJECT

public:
    using Note = std::function<void(const QString &)>;

    static constexpr const char *kWebSocketPath = "/bridge";
    // A connection that has not sent a whole request head by then is closed. A browser sends
    // its head at once; a connection that sits idle is someone holding a place.
    static constexpr int kHeadTimeoutMs = 3'000;
    // Connections still sending their heads: far more than idle connections a local process
    // bothers to hold (a few KiB and a descriptor each), so a page's connection, which sends
    // its head at once, is not crowded out. One more makes room by closing the oldest that has
    // sent nothing yet (else the oldest of all), never by refusing the newcomer.
    static constexpr int kMaxPendingConnections = 256;

    struct Setup
    {
        // Service mode serves no files: every plain request is answered 404.
        BridgeMode mode = BridgeMode::Token;
        // A WebSocket message longer than this is refused by the relay (1009).
        qint64 maxMessageBytes = 0;
    };

    // `webSockets` and `token` must outlive the front door. `hasRoomForClient` says whether
    // one more WebSocket client may connect. `note` receives a line per refusal.
    FrontDoor(QWebSocketServer *webSockets, const AccessToken *token, PageFiles files,
              Setup setup, std::function<bool()> hasRoomForClient, Note note,
              QObject *parent = nullptr);
    ~FrontDoor() override;

    // Binds 127.0.0.1:`port` (0: any free port). False with `error` naming the address and
    // the reason; for a port in use, "cannot listen on 127.0.0.1:PORT: the port is in use by
    // process PID (NAME)", the process left out when the system does not say.
    bool listen(quint16 port, QString *error);
    quint16 port() const { return m_server.serverPort(); }
    // "http://127.0.0.1:PORT"
    QString origin() const;

    // What every response carries as its Content-Security-Policy: the page may load only its
    // own files and talk only to this port's WebSocket.
    QByteArray contentSecurityPolicy() const;

private:
    void accept();
    // True when the connection's peer socket belongs to this process's user; logs a refusal
    // otherwise, or when the owner cannot be found.
    bool isOwnUsers(QTcpSocket *socket);
    void readHead(QTcpSocket *socket);
    void respond(QTcpSocket *socket, int status, const QByteArray &text, bool headOnly = false);
    void forget(QTcpSocket *socket);
    void evictOnePending();

    QTcpServer m_server;
    QWebSocketServer *m_webSockets;
    const AccessToken *m_token;
    PageFiles m_files;
    Setup m_setup;
    std::function<bool()> m_hasRoomForClient;
    Note m_note;
    // Oldest first.
    QList<QTcpSocket *> m_pending;
};

} // namespace zthost::bridge
