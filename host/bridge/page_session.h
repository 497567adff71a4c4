#pragma once

#include <QObject>
#include <QString>

#include <functional>

#include <memory>

class QWebChannel;
class QWebSocket;

namespace zthost {
class ScriptableCalls;
} // namespace zthost

namespace zthost::bridge {

class BridgeFacts;
class MessageGate;
class ScriptableFacade;
class WebSocketTransport;

// One page's connection: its own scriptable object (from the plug-in's CreateComponent), the
// façade the page calls it through, the `bridge` facts, and a web channel of its own over its
// WebSocket. Nothing is shared with another page but the host core and the key component.
class PageSession : public QObject
{
    Q_OBJECT

public:
    using Note = std::function<void(const QString &)>;

    // Takes `socket` and `scriptable` over. `gate` must outlive the session. `maxUnreadBytes`
    // as WebSocketTransport takes it.
    PageSession(QWebSocket *socket, std::unique_ptr<ScriptableCalls> scriptable,
                const MessageGate *gate, Note note, qint64 maxMessageBytes, const QString &mode,
                QObject *parent = nullptr);
    // finish(), unless it was called.
    ~PageSession() override;

    // Ends the page's connection, closes its key (WebCloseKey) and deletes its scriptable
    // object, in that order. Answers what WebCloseKey answered ("true", "false") or why it was
    // not called; empty when the session was already finished.
    QString finish();

    QWebSocket *socket() const;
    // The object the page calls, for tests that check it cannot be renamed or deleted.
    QObject *facade() const;

signals:
    // The page's WebSocket has closed; the session may be deleted.
    void closed();

private:
    std::unique_ptr<ScriptableCalls> m_scriptable;
    std::unique_ptr<ScriptableFacade> m_facade;
    std::unique_ptr<BridgeFacts> m_facts;
    std::unique_ptr<WebSocketTransport> m_transport;
    std::unique_ptr<QWebChannel> m_channel;
};

} // namespace zthost::bridge
