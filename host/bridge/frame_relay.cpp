// Reads untrusted bytes: relays any local process's WebSocket stream, following its frames.
#include "bridge/frame_relay.h"

#include <QTcpSocket>

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

namespace zthost::bridge {

namespace {

// The longest payload of a control frame, of which the code takes 2 bytes.
constexpr int kMaxCloseReasonBytes = 123;
constexpr quint16 kProtocolErrorCode = 1002;
constexpr quint16 kTooMuchDataCode = 1009;
constexpr const char *kUpgradedStatusLine = "HTTP/1.1 101 ";

bool isOpen(const QTcpSocket *socket)
{
    return socket->state() == QAbstractSocket::ConnectedState;
}

} // namespace

QByteArray FrameRelay::closeFrame(quint16 code, const QByteArray &reason)
{
    // FIN and opcode 8, the payload's length, then the code (big-endian) and the reason.
    const QByteArray text = reason.left(kMaxCloseReasonBytes);
    QByteArray frame;
    frame += char(0x88);
    frame += char(2 + text.size());
    frame += char(code >> 8);
    frame += char(code & 0xff);
    frame += text;
    return frame;
}

QTcpSocket *FrameRelay::start(QTcpSocket *client, qint64 headBytes, qint64 maxMessageBytes,
                              Note note, QObject *parent, QObject *serverEndParent,
                              QString *error)
{
    // A pair of connected sockets inside the process: Qt's WebSocket server reads one end as
    // it would read the client.
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        *error = QStringLiteral("cannot relay a WebSocket: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return nullptr;
    }
    auto *serverEnd = new QTcpSocket(serverEndParent);
    auto *inner = new QTcpSocket;
    const bool serverEndTaken = serverEnd->setSocketDescriptor(pair[0]);
    const bool innerTaken = serverEndTaken && inner->setSocketDescriptor(pair[1]);
    if (!serverEndTaken || !innerTaken) {
        *error = QStringLiteral("cannot relay a WebSocket: %1")
                     .arg(serverEndTaken ? inner->errorString() : serverEnd->errorString());
        // A descriptor a socket took closes with it; the other is still ours.
        if (!serverEndTaken)
            ::close(pair[0]);
        if (!innerTaken)
            ::close(pair[1]);
        delete serverEnd;
        delete inner;
        return nullptr;
    }
    // The head the front door judged goes first, as the client sent it.
    inner->write(client->read(headBytes));
    new FrameRelay(client, inner, maxMessageBytes, std::move(note), parent);
    return serverEnd;
}

FrameRelay::FrameRelay(QTcpSocket *client, QTcpSocket *inner, qint64 maxMessageBytes, Note note,
                       QObject *parent)
    : QObject(parent),
      m_client(client),
      m_inner(inner),
      m_note(std::move(note)),
      m_maxMessageBytes(maxMessageBytes),
      m_clientFrames(true, quint64(qMax<qint64>(0, maxMessageBytes)))
{
    m_client->setParent(this);
    m_inner->setParent(this);
    m_client->setReadBufferSize(kChunkBytes);
    m_inner->setReadBufferSize(kChunkBytes);
    m_closeTimeout.setSingleShot(true);
    connect(&m_closeTimeout, &QTimer::timeout, this, [this] {
        m_client->abort();
        m_inner->abort();
        deleteWhenDone();
    });
    connect(m_client, &QTcpSocket::readyRead, this, [this] { fromClient(); });
    connect(m_inner, &QTcpSocket::bytesWritten, this, [this] { fromClient(); });
    connect(m_inner, &QTcpSocket::readyRead, this, [this] { fromServer(); });
    connect(m_client, &QTcpSocket::bytesWritten, this, [this] { fromServer(); });
    connect(m_client, &QTcpSocket::disconnected, this, &FrameRelay::clientClosed);
    connect(m_inner, &QTcpSocket::disconnected, this, &FrameRelay::serverClosed);
    // What the client sent after its head is already here and will not be announced again.
    fromClient();
}

void FrameRelay::fromClient(bool all)
{
    while (m_client->bytesAvailable() > 0) {
        if (m_refused) {
            // Read and dropped: a client whose unread bytes sit in the system when it is
            // closed gets a reset instead of the close frame.
            m_client->skip(m_client->bytesAvailable());
            continue;
        }
        if (!all && m_inner->bytesToWrite() >= kMaxPendingBytes)
            return;
        const QByteArray chunk = m_client->read(kChunkBytes);
        const qint64 taken = m_clientFrames.follow(chunk.constData(), chunk.size());
        if (isOpen(m_inner))
            m_inner->write(chunk.constData(), taken);
        if (m_clientFrames.fault() != FrameTracker::Fault::None) {
            refuse();
            return;
        }
    }
}

void FrameRelay::fromServer(bool all)
{
    while (m_inner->bytesAvailable() > 0 && (all || m_client->bytesToWrite() < kMaxPendingBytes)) {
        if (m_refused && m_closing)
            break;
        const QByteArray chunk = m_inner->read(kChunkBytes);
        const qint64 taken = followServer(chunk);
        if (isOpen(m_client))
            m_client->write(chunk.constData(), taken);
        // Less than all only once the client was refused and the server's frame has ended.
        if (taken < chunk.size())
            break;
    }
    if (m_refused)
        finishRefusal();
}

qint64 FrameRelay::followServer(const QByteArray &chunk)
{
    qint64 at = 0;
    if (!m_serverHeadDone) {
        const int searchFrom = qMax(0, m_serverHead.size() - 3);
        m_serverHead += chunk;
        const int end = m_serverHead.indexOf("\r\n\r\n", searchFrom);
        if (end < 0) {
            // Qt's answer is a few hundred bytes; anything else is passed on unfollowed.
            if (m_serverHead.size() > kMaxServerHeadBytes) {
                m_serverHeadDone = true;
                m_serverHead.clear();
            }
            return chunk.size();
        }
        m_serverHeadDone = true;
        m_upgraded = m_serverHead.startsWith(kUpgradedStatusLine);
        at = chunk.size() - (m_serverHead.size() - (end + 4));
        m_serverHead = QByteArray();
    }
    if (!m_upgraded)
        return chunk.size();
    return at + m_serverFrames.follow(chunk.constData() + at, chunk.size() - at, m_refused);
}

void FrameRelay::refuse()
{
    m_refused = true;
    switch (m_clientFrames.fault()) {
    case FrameTracker::Fault::MessageTooLarge:
        m_note(QStringLiteral("closed a WebSocket that sent a message over the limit of %1 bytes (1009)")
                   .arg(m_maxMessageBytes));
        break;
    case FrameTracker::Fault::Unmasked:
        m_note(QStringLiteral("closed a WebSocket that sent an unmasked frame (1002)"));
        break;
    default:
        m_note(QStringLiteral("closed a WebSocket that sent a frame longer than 2^63 bytes (1002)"));
        break;
    }
    m_closeTimeout.start(kCloseTimeoutMs);
    fromServer();
}

void FrameRelay::finishRefusal()
{
    if (m_closing)
        return;
    // The close frame may not cut into the server's answer head or a frame it is sending.
    const bool midServerFrame = !m_serverHeadDone || (m_upgraded && !m_serverFrames.atFrameBoundary());
    if (midServerFrame && (isOpen(m_inner) || m_inner->bytesAvailable() > 0))
        return;
    m_closing = true;
    disconnect(m_inner, nullptr, this, nullptr);
    // The WebSocket server sees its client go.
    m_inner->abort();
    if (m_upgraded && !midServerFrame && isOpen(m_client)) {
        m_client->write(m_clientFrames.fault() == FrameTracker::Fault::MessageTooLarge
                            ? closeFrame(kTooMuchDataCode,
                                         QStringLiteral("message too large (limit %1 bytes)")
                                             .arg(m_maxMessageBytes)
                                             .toUtf8())
                            : closeFrame(kProtocolErrorCode));
    }
    closeClient();
}

void FrameRelay::clientClosed()
{
    // Its last bytes still go to the server, followed as any others.
    fromClient(true);
    if (m_refused && !m_closing) {
        // No one is left to receive the close frame.
        m_closing = true;
        disconnect(m_inner, nullptr, this, nullptr);
        m_inner->abort();
    } else if (!m_refused && isOpen(m_inner)) {
        m_inner->disconnectFromHost();
    }
    if (!m_closeTimeout.isActive())
        m_closeTimeout.start(kCloseTimeoutMs);
    deleteWhenDone();
}

void FrameRelay::serverClosed()
{
    fromServer(true);
    if (m_refused)
        return;
    closeClient();
}

void FrameRelay::closeClient()
{
    if (!m_closeTimeout.isActive())
        m_closeTimeout.start(kCloseTimeoutMs);
    // Once what was written has gone out.
    m_client->disconnectFromHost();
    deleteWhenDone();
}

void FrameRelay::deleteWhenDone()
{
    if (m_client->state() == QAbstractSocket::UnconnectedState
        && m_inner->state() == QAbstractSocket::UnconnectedState)
        deleteLater();
}

} // namespace zthost::bridge
