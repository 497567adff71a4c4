#include "bridge/websocket_transport.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QTimer>
#include <QWebSocket>

namespace zthost::bridge {

WebSocketTransport::WebSocketTransport(QWebSocket *socket, const MessageGate *gate, Note note,
                                       qint64 maxUnreadBytes, QObject *parent)
    : QWebChannelAbstractTransport(parent),
      m_socket(socket),
      m_gate(gate),
      m_note(std::move(note)),
      m_maxUnreadBytes(maxUnreadBytes)
{
    socket->setParent(this);
    connect(socket, &QWebSocket::textMessageReceived, this, &WebSocketTransport::receiveText);
    connect(socket, &QWebSocket::binaryMessageReceived, this, &WebSocketTransport::receiveBinary);
    connect(socket, &QWebSocket::disconnected, this, &WebSocketTransport::closed);
    connect(socket, &QWebSocket::bytesWritten, this, &WebSocketTransport::answersWritten);
}

WebSocketTransport::~WebSocketTransport()
{
    if (m_socket)
        m_socket->disconnect(this);
}

void WebSocketTransport::sendMessage(const QJsonObject &message)
{
    if (!m_socket || m_socket->state() != QAbstractSocket::ConnectedState)
        return;
    m_socket->sendTextMessage(
        QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
    // Handed to the system at once: what stays behind is what the page has not read.
    m_socket->flush();
    if (m_socket->bytesToWrite() > 0)
        ++m_unreadAnswers;
    else
        m_unreadAnswers = 0;
}

void WebSocketTransport::answersWritten()
{
    if (m_socket && m_socket->bytesToWrite() == 0)
        m_unreadAnswers = 0;
}

bool WebSocketTransport::closeIfAnswersPileUp()
{
    if (m_closing)
        return true;
    if (m_unreadAnswers < kMaxUnreadAnswers && m_socket->bytesToWrite() <= m_maxUnreadBytes)
        return false;
    m_closing = true;
    if (m_note)
        m_note(QStringLiteral("closed a WebSocket whose page left %1 answers (%2 bytes) unread")
                   .arg(m_unreadAnswers)
                   .arg(m_socket->bytesToWrite()));
    m_socket->close(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("answers not read"));
    // A page that reads nothing would hold its answers here for good.
    QTimer::singleShot(kCloseGraceMs, m_socket, [socket = m_socket] {
        if (socket)
            socket->abort();
    });
    return true;
}

void WebSocketTransport::receiveText(const QString &text)
{
    if (!m_socket || closeIfAnswersPileUp())
        return;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        if (m_note)
            m_note(QStringLiteral("dropped a message of %1 characters that is not a JSON object")
                       .arg(text.size()));
        return;
    }
    const QJsonObject message = document.object();
    const MessageGate::Verdict verdict = m_gate->judge(message);
    switch (verdict.kind) {
    case MessageGate::Verdict::Kind::Forward:
        emit messageReceived(message, this);
        return;
    case MessageGate::Verdict::Kind::Answer:
        if (m_note)
            m_note(verdict.reason);
        sendMessage(verdict.answer);
        return;
    case MessageGate::Verdict::Kind::Drop:
        if (m_note)
            m_note(QStringLiteral("dropped %1").arg(verdict.reason));
        return;
    }
}

void WebSocketTransport::receiveBinary()
{
    if (m_note)
        m_note(QStringLiteral("dropped a binary message: the channel speaks JSON text"));
}

} // namespace zthost::bridge
