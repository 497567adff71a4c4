#pragma once

#include "bridge/frame_tracker.h"

#include <QByteArray>
#include <QObject>
#include <QTimer>

#include <functional>

class QTcpSocket;

namespace zthost::bridge {

// Stands between a WebSocket client and Qt's WebSocket server, which accepts client frames
// without a mask. The client's bytes go through unchanged while a FrameTracker follows their
// frame headers; the first unmasked frame (or impossible length) closes the connection with
// 1002 and one log line, and the first frame that takes a message past the limit with 1009,
// "message too large (limit N bytes)", before the server sees that frame. Neither direction buffers more than a few chunks: a side is read only
// while the other side has little left to write.
class FrameRelay : public QObject
{
    Q_OBJECT

public:
    using Note = std::function<void(const QString &)>;

    // Bytes read from one side at a time, and what a side may have waiting to be written
    // before the other side is no longer read.
    static constexpr qint64 kChunkBytes = 64 * 1024;
    static constexpr qint64 kMaxPendingBytes = 256 * 1024;
    // A closing side that does not take its last bytes within this is cut off.
    static constexpr int kCloseTimeoutMs = 10'000;

    // Takes `client`, whose first `headBytes` unread bytes are its upgrade request, and returns
    // the socket to hand to the WebSocket server in its place (a child of `serverEndParent`),
    // or null with `error` set. `maxMessageBytes` bounds a message (0: no bound). The relay is
    // a child of `parent` and deletes itself once both sides are closed.
    static QTcpSocket *start(QTcpSocket *client, qint64 headBytes, qint64 maxMessageBytes,
                             Note note, QObject *parent, QObject *serverEndParent,
                             QString *error);

    // The close frame the relay sends a client it refuses, as a server sends it (unmasked):
    // `code` and `reason` (at most 123 bytes of it).
    static QByteArray closeFrame(quint16 code, const QByteArray &reason = QByteArray());

private:
    FrameRelay(QTcpSocket *client, QTcpSocket *inner, qint64 maxMessageBytes, Note note,
               QObject *parent);

    // `all`: also past kMaxPendingBytes, once the reading side has closed (what is left of it
    // is at most its read buffer).
    void fromClient(bool all = false);
    void fromServer(bool all = false);
    // What of `chunk`, the server's next bytes, may go to the client.
    qint64 followServer(const QByteArray &chunk);
    void refuse();
    void finishRefusal();
    void clientClosed();
    void serverClosed();
    void closeClient();
    void deleteWhenDone();

    // Qt's answer to an upgrade is a few hundred bytes.
    static constexpr int kMaxServerHeadBytes = 8 * 1024;

    QTcpSocket *m_client;
    QTcpSocket *m_inner;
    Note m_note;
    qint64 m_maxMessageBytes;
    FrameTracker m_clientFrames;
    FrameTracker m_serverFrames{false};
    // The server's answer to the upgrade, until its blank line.
    QByteArray m_serverHead;
    bool m_serverHeadDone = false;
    bool m_upgraded = false;
    // The client broke the protocol: nothing more of it is relayed, and the close frame goes
    // out once the server's frame in progress has.
    bool m_refused = false;
    bool m_closing = false;
    QTimer m_closeTimeout;
};

} // namespace zthost::bridge
