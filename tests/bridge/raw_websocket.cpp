#include "raw_websocket.h"

#include "bridge_client.h"

#include <QtEndian>

bool RawWebSocket::open(const QUrl &url, const QString &origin)
{
    m_socket.connectToHost(QStringLiteral("127.0.0.1"), quint16(url.port()));
    if (!waitUntil([&] { return m_socket.state() == QAbstractSocket::ConnectedState; }))
        return false;
    m_socket.write("GET " + url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority)
                   + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(url.port())
                   + "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                     "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n"
                     "Origin: "
                   + origin.toUtf8() + "\r\n\r\n");
    waitUntil([&] {
        m_received += m_socket.readAll();
        return m_received.contains("\r\n\r\n") || m_socket.state() != QAbstractSocket::ConnectedState;
    });
    const int end = m_received.indexOf("\r\n\r\n");
    if (end < 0 || !m_received.startsWith("HTTP/1.1 101"))
        return false;
    m_received.remove(0, end + 4);
    return true;
}

QByteArray RawWebSocket::frame(quint8 opcode, const QByteArray &payload, bool masked)
{
    QByteArray bytes;
    bytes += char(0x80 | opcode);
    const char maskBit = masked ? char(0x80) : char(0);
    if (payload.size() < 126) {
        bytes += char(maskBit | payload.size());
    } else if (payload.size() <= 0xffff) {
        bytes += char(maskBit | 126);
        bytes += char(payload.size() >> 8);
        bytes += char(payload.size() & 0xff);
    } else {
        bytes += char(maskBit | 127);
        for (int shift = 56; shift >= 0; shift -= 8)
            bytes += char((quint64(payload.size()) >> shift) & 0xff);
    }
    if (!masked)
        return bytes + payload;
    const char key[4] = {0x12, 0x34, 0x56, 0x78};
    bytes.append(key, 4);
    QByteArray body = payload;
    for (int i = 0; i < body.size(); ++i)
        body[i] = char(body[i] ^ key[i % 4]);
    return bytes + body;
}

void RawWebSocket::send(const QByteArray &bytes)
{
    m_socket.write(bytes);
}

int RawWebSocket::closeCodeAtEnd()
{
    waitUntil([&] {
        m_received += m_socket.readAll();
        return m_socket.state() == QAbstractSocket::UnconnectedState;
    }, 30000);
    m_received += m_socket.readAll();
    // The server's frames are never masked.
    int at = 0;
    int code = -1;
    while (at + 2 <= m_received.size()) {
        const quint8 opcode = quint8(m_received[at]) & 0x0f;
        quint64 length = quint8(m_received[at + 1]) & 0x7f;
        int header = 2;
        if (length == 126) {
            if (at + 4 > m_received.size())
                break;
            length = qFromBigEndian<quint16>(m_received.constData() + at + 2);
            header = 4;
        } else if (length == 127) {
            if (at + 10 > m_received.size())
                break;
            length = qFromBigEndian<quint64>(m_received.constData() + at + 2);
            header = 10;
        }
        if (quint64(m_received.size() - at - header) < length)
            break;
        if (opcode == 0x8 && length >= 2)
            code = qFromBigEndian<quint16>(m_received.constData() + at + header);
        at += header + int(length);
    }
    return code;
}
