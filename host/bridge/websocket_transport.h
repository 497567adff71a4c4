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

    // Answers a page may leave unread before it is closed: qwebchannel.js waits for each, and a
    // page has a handful of calls out at most. Every call runs to its end before the next
    // message is read, so the answers not yet read are also the calls a page has in flight.
    static constexpr int kMaxUnreadAnswers = 64;
    // A page closed for that has this long to read what it was sent before its connection is
    // cut.
    static constexpr int kCloseGraceMs = 5'000;

    // Takes `socket` over (it becomes a child of the transport). `gate` must outlive the
    // transport. `note` receives a line per dropped or refused message; it may be empty.
    // `maxUnreadBytes` bounds the answers' bytes the page has not read, as kMaxUnreadAnswers
    // bounds their number: past either, the connection is closed with 1008.
    WebSocketTransport(QWebSocket *socket, const MessageGate *gate, Note note,
                       qint64 maxUnreadBytes, QObject *parent = nullptr);
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
    // True once the page has left more answers unread than it may; closes the connection.
    bool closeIfAnswersPileUp();
    void answersWritten();

    QPointer<QWebSocket> m_socket;
    const MessageGate *m_gate;
    Note m_note;
    qint64 m_maxUnreadBytes;
    // Answers sent since the socket last had nothing left to write.
    int m_unreadAnswers = 0;
    bool m_closing = false;
};

} // namespace zthost::bridge
