#pragma once

#include "bridge/message_gate.h"

#include <QPointer>
#include <QWebChannelAbstractTransport>
#include <QWebSocket>

#include <functional>

namespace zthost::bridge {

// Carries one page's web channel over its WebSocket. Every message the page sends passes the
// MessageGate first; the raw text is never logged, since it may hold the PIN.
class WebSocketTransport : public QWebChannelAbstractTransport
{
    Q_OBJECT

public:
    using Note = std::function<void(const QString &)>;

    // Takes `socket` over (it becomes a child of the transport). `gate` must outlive the
    // transport. `note` receives a line per dropped or refused message; it may be empty.
    WebSocketTransport(QWebSocket *socket, const MessageGate *gate, Note note,
                       QObject *parent = nullptr);
    ~WebSocketTransport() override;

    // A disconnected socket swallows the message: a page that left mid-call gets no answer,
    // and the next page is not disturbed.
    void sendMessage(const QJsonObject &message) override;

    QWebSocket *socket() const { return m_socket; }

signals:
    void closed();

private:
    void receiveText(const QString &text);
    void receiveBinary();

    QPointer<QWebSocket> m_socket;
    const MessageGate *m_gate;
    Note m_note;
};

} // namespace zthost::bridge
