#include "bridge/front_door.h"

#include "bridge/frame_relay.h"
#include "bridge/http_request_head.h"
#include "bridge/http_response.h"
#include "bridge/peer_text.h"
#include "bridge/socket_table.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <QTimer>
#include <QWebSocketServer>

#include <sys/socket.h>
#include <unistd.h>

namespace zthost::bridge {

namespace {

// True when the peer has sent at least one byte, read by Qt or still in the kernel.
bool hasSentAnything(QTcpSocket *socket)
{
    if (socket->bytesAvailable() > 0)
        return true;
    char byte = 0;
    return ::recv(int(socket->socketDescriptor()), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
}

} // namespace

FrontDoor::FrontDoor(QWebSocketServer *webSockets, const AccessToken *token, PageFiles files,
                     Setup setup, std::function<bool()> hasRoomForClient, Note note,
                     QObject *parent)
    : QObject(parent),
      m_webSockets(webSockets),
      m_token(token),
      m_files(std::move(files)),
      m_setup(setup),
      m_hasRoomForClient(std::move(hasRoomForClient)),
      m_note(std::move(note))
{
    connect(&m_server, &QTcpServer::newConnection, this, &FrontDoor::accept);
}

FrontDoor::~FrontDoor()
{
    // The server deletes the sockets it made as it goes, after our members are gone; their
    // handlers must not run by then.
    m_server.close();
    // Relays first: they hold client sockets the server would otherwise delete under them.
    qDeleteAll(findChildren<FrameRelay *>(QString(), Qt::FindDirectChildrenOnly));
    const QList<QTcpSocket *> pending = m_pending;
    m_pending.clear();
    for (QTcpSocket *socket : pending) {
        socket->disconnect(this);
        socket->abort();
        delete socket;
    }
}

bool FrontDoor::listen(quint16 port, QString *error)
{
    // Loopback only: the bridge reaches the user's key, nothing beyond this machine may reach it.
    if (!m_server.listen(QHostAddress::LocalHost, port)) {
        if (m_server.serverError() == QAbstractSocket::AddressInUseError) {
            const QString holder = SocketTable::processHolding(SocketTable::listeningInodes(port));
            *error = QStringLiteral("cannot listen on 127.0.0.1:%1: the port is in use%2")
                         .arg(port)
                         .arg(holder.isEmpty() ? QString() : QStringLiteral(" by ") + holder);
        } else {
            *error = QStringLiteral("cannot listen on 127.0.0.1:%1: %2").arg(port).arg(m_server.errorString());
        }
        return false;
    }
    // Qt queues 50 connections not yet accepted; a burst of idle ones past that would make a
    // page's connection wait for the system to retry it, a second or more.
    ::listen(int(m_server.socketDescriptor()), SOMAXCONN);
    return true;
}

QString FrontDoor::origin() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(port());
}

QByteArray FrontDoor::contentSecurityPolicy() const
{
    return "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
           "connect-src ws://127.0.0.1:"
           + QByteArray::number(port())
           + "; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
}

bool FrontDoor::isOwnUsers(QTcpSocket *socket)
{
#ifdef Q_OS_LINUX
    // The peer's socket is the one whose local end is our remote end, and the other way round.
    const std::optional<unsigned> owner = SocketTable::ownerOf(
        socket->peerAddress(), socket->peerPort(), socket->localAddress(), socket->localPort());
    const unsigned own = unsigned(::geteuid());
    if (owner && *owner == own)
        return true;
    m_note(owner ? QStringLiteral("refused a connection from uid %1 (the bridge runs as uid %2)")
                       .arg(*owner)
                       .arg(own)
                 : QStringLiteral("refused a connection whose owner the socket table does not "
                                  "list (the bridge runs as uid %1)")
                       .arg(own));
    return false;
#else
    Q_UNUSED(socket)
    return true;
#endif
}

void FrontDoor::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        // Whose it is, is asked once its request is whole (readHead), before anything is
        // answered: a connection that never sends one costs no look-up in the socket table,
        // which grows with every socket on the machine, and is dropped at the head timeout.
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        if (m_pending.size() >= kMaxPendingConnections)
            evictOnePending();
        m_pending.append(socket);
        auto *timeout = new QTimer(socket);
        timeout->setObjectName(QStringLiteral("headTimeout"));
        timeout->setSingleShot(true);
        connect(timeout, &QTimer::timeout, socket, [this, socket] {
            // The timer may have waited behind a long call on this thread while the head sat
            // unread: what has arrived is read before the connection is given up.
            if (hasSentAnything(socket)) {
                socket->waitForReadyRead(0);
                if (!m_pending.contains(socket))
                    return;
                if (socket->bytesAvailable() > 0)
                    readHead(socket);
                if (!m_pending.contains(socket))
                    return;
            }
            m_note(QStringLiteral("closed a connection that sent no whole request in %1 ms")
                       .arg(kHeadTimeoutMs));
            forget(socket);
            socket->abort();
        });
        timeout->start(kHeadTimeoutMs);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readHead(socket); });
        connect(socket, &QObject::destroyed, this, [this, socket] { m_pending.removeOne(socket); });
        if (socket->bytesAvailable() > 0)
            readHead(socket);
    }
}

void FrontDoor::evictOnePending()
{
    QTcpSocket *oldest = m_pending.first();
    for (QTcpSocket *socket : qAsConst(m_pending)) {
        if (!hasSentAnything(socket)) {
            oldest = socket;
            break;
        }
    }
    m_note(QStringLiteral("closed the oldest of %1 connections still sending their requests")
               .arg(m_pending.size()));
    forget(oldest);
    oldest->abort();
    oldest->deleteLater();
}

void FrontDoor::forget(QTcpSocket *socket)
{
    m_pending.removeOne(socket);
    socket->disconnect(this);
    // Later, not now: this may run inside the timer's own timeout.
    if (auto *timeout = socket->findChild<QTimer *>(QStringLiteral("headTimeout"))) {
        timeout->stop();
        timeout->setObjectName(QString());
        timeout->deleteLater();
    }
}

void FrontDoor::respond(QTcpSocket *socket, int status, const QByteArray &text, bool headOnly)
{
    forget(socket);
    socket->write(HttpResponse::plainText(status, text).serialise(contentSecurityPolicy(), headOnly));
    socket->disconnectFromHost();
}

void FrontDoor::readHead(QTcpSocket *socket)
{
    // Peeked, not read: an upgrade goes to the WebSocket server with its bytes still unread.
    const QByteArray bytes = socket->peek(HttpRequestHead::kMaxHeadBytes + 1);
    HttpRequestHead head;
    const HttpRequestHead::Parse parsed = HttpRequestHead::parse(bytes, &head);
    if (parsed == HttpRequestHead::Parse::Incomplete)
        return;
    // Before anything is answered: another user of this machine learns nothing.
    if (!isOwnUsers(socket)) {
        forget(socket);
        socket->abort();
        socket->deleteLater();
        return;
    }
    switch (parsed) {
    case HttpRequestHead::Parse::Incomplete:
        return;
    case HttpRequestHead::Parse::TooLarge:
        m_note(QStringLiteral("refused a request whose head exceeds %1 bytes")
                   .arg(HttpRequestHead::kMaxHeadBytes));
        respond(socket, 431, "request head too large");
        return;
    case HttpRequestHead::Parse::Malformed:
        m_note(QStringLiteral("refused a malformed request"));
        respond(socket, 400, "malformed request");
        return;
    case HttpRequestHead::Parse::Complete:
        break;
    }

    // A page of another site whose name was made to resolve to 127.0.0.1 (DNS rebinding)
    // sends its own host name here.
    const QByteArray expectedHost = "127.0.0.1:" + QByteArray::number(port());
    if (head.header("host").toLower() != expectedHost) {
        m_note(QStringLiteral("refused a request for host \"%1\"")
                   .arg(peerText(QString::fromLatin1(head.header("host")), *m_token)));
        respond(socket, 421, "this server answers only " + expectedHost);
        return;
    }

    if (head.isWebSocketUpgrade()) {
        if (head.method != "GET" || head.path != QLatin1String(kWebSocketPath)) {
            m_note(QStringLiteral("refused a WebSocket upgrade for %1").arg(peerText(head.path, *m_token)));
            respond(socket, 404, "no WebSocket here");
            return;
        }
        if (!m_hasRoomForClient()) {
            m_note(QStringLiteral("refused a WebSocket: the bridge has all the clients it takes"));
            respond(socket, 503, "too many clients");
            return;
        }
        forget(socket);
        disconnect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        // Qt's WebSocket server takes a client's frames without a mask: it gets the client
        // through a relay that closes such a client, and sees the same bytes otherwise.
        QString error;
        QTcpSocket *relayed = FrameRelay::start(socket, bytes.indexOf("\r\n\r\n") + 4,
                                                m_setup.maxMessageBytes, m_note, this, &m_server,
                                                &error);
        if (!relayed) {
            m_note(error);
            socket->abort();
            socket->deleteLater();
            return;
        }
        // The WebSocket server deletes the socket when its handshake fails or times out.
        m_webSockets->handleConnection(relayed);
        return;
    }

    const bool headOnly = head.method == "HEAD";
    if (head.method != "GET" && !headOnly) {
        forget(socket);
        HttpResponse response = HttpResponse::plainText(405, "only GET and HEAD");
        response.allow = "GET, HEAD";
        socket->write(response.serialise(contentSecurityPolicy()));
        socket->disconnectFromHost();
        return;
    }
    // The service has no page of its own: a site's page comes from the site.
    if (m_setup.mode == BridgeMode::Service) {
        respond(socket, 404, "not found", headOnly);
        return;
    }
    HttpResponse response;
    QString error;
    switch (m_files.lookup(head.path, &response.contentType, &response.body, &error)) {
    case PageFiles::Lookup::Found:
        forget(socket);
        socket->write(response.serialise(contentSecurityPolicy(), headOnly));
        socket->disconnectFromHost();
        return;
    case PageFiles::Lookup::NotFound:
        respond(socket, 404, "not found", headOnly);
        return;
    case PageFiles::Lookup::Unreadable:
        m_note(error);
        respond(socket, 500, "the page's file cannot be read", headOnly);
        return;
    }
}

} // namespace zthost::bridge
