#include "bridge/websocket_transport.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QWebSocket>

namespace zthost::bridge {

WebSocketTransport::WebSocketTransport(QWebSocket *socket, const MessageGate *gate, Note note,
                                       QObject *parent)
    : QWebChannelAbstractTransport(parent), m_socket(socket), m_gate(gate), m_note(std::move(note))
{
    socket->setParent(this);
    connect(socket, &QWebSocket::textMessageReceived, this, &WebSocketTransport::receiveText);
    connect(socket, &QWebSocket::binaryMessageReceived, this, &WebSocketTransport::receiveBinary);
    connect(socket, &QWebSocket::disconnected, this, &WebSocketTransport::closed);
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
}

void WebSocketTransport::receiveText(const QString &text)
{
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
