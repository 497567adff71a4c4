#pragma once

#include "bridge/access_token.h"
#include "bridge/page_files.h"

#include <QByteArray>
#include <QObject>
#include <QList>
#include <QTcpServer>

#include <functional>

class QTcpSocket;
class QWebSocketServer;

namespace zthost::bridge {

// The bridge's one listening port on 127.0.0.1: answers GET and HEAD for the page's files, and
// hands a WebSocket upgrade to the WebSocket server, through a FrameRelay, once its path, token
// and Host are right and there is room for another client. The upgrade's Origin is the
// WebSocket server's to judge.
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

    // `webSockets` and `token` must outlive the front door. `hasRoomForClient` says whether
    // one more WebSocket client may connect. `note` receives a line per refusal.
    FrontDoor(QWebSocketServer *webSockets, const AccessToken *token, PageFiles files,
              std::function<bool()> hasRoomForClient, Note note, QObject *parent = nullptr);
    ~FrontDoor() override;

    // Binds 127.0.0.1:`port` (0: any free port). False with `error` naming the address and
    // the reason.
    bool listen(quint16 port, QString *error);
    quint16 port() const { return m_server.serverPort(); }
    // "http://127.0.0.1:PORT"
    QString origin() const;

    // What every response carries as its Content-Security-Policy: the page may load only its
    // own files and talk only to this port's WebSocket.
    QByteArray contentSecurityPolicy() const;

private:
    void accept();
    void readHead(QTcpSocket *socket);
    void respond(QTcpSocket *socket, int status, const QByteArray &text, bool headOnly = false);
    void forget(QTcpSocket *socket);
    void evictOnePending();

    QTcpServer m_server;
    QWebSocketServer *m_webSockets;
    const AccessToken *m_token;
    PageFiles m_files;
    std::function<bool()> m_hasRoomForClient;
    Note m_note;
    // Oldest first.
    QList<QTcpSocket *> m_pending;
};

} // namespace zthost::bridge
