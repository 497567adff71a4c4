#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QStringList>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QUrl>
#include <QWebSocket>

#include <optional>

// A page's side of the bridge without a browser: a WebSocket with a chosen Origin that speaks
// the web channel's JSON messages.
class BridgeClient
{
public:
    explicit BridgeClient(const QString &origin);

    // True once the WebSocket is open; false when the bridge refused or closed it first.
    bool open(const QUrl &url);
    bool isOpen() const;
    // Waits until the bridge closes the connection; false when it stays open.
    bool waitForDisconnected();
    QWebSocketProtocol::CloseCode closeCode() const { return m_socket.closeCode(); }

    // The channel's handshake; answers the published objects' descriptions by name.
    QJsonObject initialize();

    // Sends `message` with a fresh id (unless it has one) and answers the id.
    int send(QJsonObject message);
    void sendText(const QString &text);
    // The response to `id`, or nothing when the connection closes or a response to a later id
    // arrives first (the bridge answers in order, so it never will).
    std::optional<QJsonValue> response(int id);
    // Waits for the response to `id` however long it takes (up to the test timeout).
    std::optional<QJsonValue> waitForResponse(int id);

    // Calls `method` by name, as qwebchannel.js does; nothing when no answer came.
    std::optional<QJsonValue> call(const QString &method, const QJsonArray &args = QJsonArray());

    // The index under which `signature` (e.g. "deleteLater()") is published; -1 if it is not.
    static int methodIndex(const QJsonObject &description, const QString &name);
    // The published object's properties but objectName, as "name=value" in order.
    static QStringList propertyValues(const QJsonObject &description);

    QWebSocket &socket() { return m_socket; }

private:
    void receive(const QString &text);

    QWebSocket m_socket;
    int m_nextId = 1;
    QHash<int, QJsonValue> m_responses;
    int m_highestAnswered = 0;
};

struct HttpAnswer
{
    int status = 0;
    QHash<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
};

// One raw HTTP request to 127.0.0.1:`port`; `host` is the Host header sent.
HttpAnswer httpRequest(quint16 port, const QByteArray &method, const QByteArray &target,
                       const QByteArray &host = QByteArray());

// Waits for `done` with the event loop running, up to `timeoutMs`.
bool waitUntil(const std::function<bool()> &done, int timeoutMs = 5000);
