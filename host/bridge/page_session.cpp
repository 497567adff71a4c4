#include "bridge/page_session.h"

#include "bridge/bridge_facts.h"
#include "bridge/scriptable_facade.h"
#include "bridge/web_bridge.h"
#include "bridge/websocket_transport.h"

#include "session/scriptable_calls.h"
#include "session/scriptable_method.h"

#include <QWebChannel>
#include <QWebSocket>

namespace zthost::bridge {

PageSession::PageSession(QWebSocket *socket, std::unique_ptr<ScriptableCalls> scriptable,
                         const MessageGate *gate, Note note, qint64 maxMessageBytes,
                         const QString &mode, QObject *parent)
    : QObject(parent),
      m_scriptable(std::move(scriptable)),
      m_facade(std::make_unique<ScriptableFacade>(*m_scriptable)),
      m_facts(std::make_unique<BridgeFacts>(maxMessageBytes, mode)),
      // Room for one answer as large as the largest message, and the smaller ones around it.
      m_transport(std::make_unique<WebSocketTransport>(socket, gate, std::move(note),
                                                       2 * maxMessageBytes)),
      m_channel(std::make_unique<QWebChannel>())
{
    m_facade->setObjectName(QLatin1String(WebBridge::kObjectId));
    m_channel->registerObject(QLatin1String(WebBridge::kObjectId), m_facade.get());
    m_channel->registerObject(QLatin1String(BridgeFacts::kObjectId), m_facts.get());
    connect(m_transport.get(), &WebSocketTransport::closed, this, &PageSession::closed);
    m_channel->connectTo(m_transport.get());
}

PageSession::~PageSession()
{
    finish();
}

QString PageSession::finish()
{
    if (!m_scriptable)
        return QString();
    // The page is gone or going: nothing it sends reaches the object from here on.
    if (QWebSocket *socket = m_transport->socket()) {
        socket->disconnect(m_transport.get());
        socket->abort();
    }
    m_channel.reset();
    m_transport.reset();
    // Its key closed as the page would close it, then the object itself.
    const Invocation closed = m_scriptable->invoke(QStringLiteral("WebCloseKey"), {});
    m_facade.reset();
    m_scriptable.reset();
    return closed.called ? answerText(closed.value) : closed.error;
}

QWebSocket *PageSession::socket() const
{
    return m_transport ? m_transport->socket() : nullptr;
}

QObject *PageSession::facade() const
{
    return m_facade.get();
}

} // namespace zthost::bridge
