#pragma once

#include <QByteArray>
#include <QTcpSocket>
#include <QUrl>

// A WebSocket client made by hand on a plain TCP socket, for what a well-behaved client never
// does: unmasked frames, or not reading what the server sends.
class RawWebSocket
{
public:
    // Sends the upgrade for `url` with `origin` and reads the server's answer head; true on 101.
    bool open(const QUrl &url, const QString &origin);

    // One whole frame: FIN set, the payload masked with a fixed key unless `masked` is false.
    static QByteArray frame(quint8 opcode, const QByteArray &payload, bool masked = true);
    void send(const QByteArray &bytes);

    // Reads until the server closes the connection; the code of the close frame it sent, or -1
    // when none came.
    int closeCodeAtEnd();

    QTcpSocket &socket() { return m_socket; }

private:
    QTcpSocket m_socket;
    QByteArray m_received;
};
