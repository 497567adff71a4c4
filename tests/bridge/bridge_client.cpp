#include "bridge_client.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QTcpSocket>

namespace {
constexpr int kResponseType = 10;
constexpr int kInitType = 3;
} // namespace

bool waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

BridgeClient::BridgeClient(const QString &origin) : m_socket(origin)
{
    QObject::connect(&m_socket, &QWebSocket::textMessageReceived,
                     [this](const QString &text) { receive(text); });
}

bool BridgeClient::open(const QUrl &url)
{
    bool ended = false;
    QObject::connect(&m_socket, &QWebSocket::disconnected, [&ended] { ended = true; });
    QObject::connect(&m_socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error),
                     [&ended](QAbstractSocket::SocketError) { ended = true; });
    m_socket.open(url);
    waitUntil([&] { return ended || isOpen(); });
    QObject::disconnect(&m_socket, &QWebSocket::disconnected, nullptr, nullptr);
    QObject::disconnect(&m_socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error),
                        nullptr, nullptr);
    return isOpen();
}

bool BridgeClient::isOpen() const
{
    return m_socket.state() == QAbstractSocket::ConnectedState;
}

bool BridgeClient::waitForDisconnected()
{
    return waitUntil([this] { return m_socket.state() == QAbstractSocket::UnconnectedState; });
}

void BridgeClient::receive(const QString &text)
{
    const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
    if (message.value(QLatin1String("type")).toInt() != kResponseType)
        return;
    const int id = message.value(QLatin1String("id")).toInt();
    m_responses.insert(id, message.value(QLatin1String("data")));
    m_highestAnswered = qMax(m_highestAnswered, id);
}

int BridgeClient::send(QJsonObject message)
{
    if (!message.contains(QLatin1String("id")))
        message.insert(QStringLiteral("id"), m_nextId++);
    sendText(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
    return message.value(QLatin1String("id")).toInt();
}

void BridgeClient::sendText(const QString &text)
{
    m_socket.sendTextMessage(text);
    m_socket.flush();
}

std::optional<QJsonValue> BridgeClient::response(int id)
{
    waitUntil([&] { return m_responses.contains(id) || m_highestAnswered > id || !isOpen(); });
    if (!m_responses.contains(id))
        return std::nullopt;
    return m_responses.take(id);
}

std::optional<QJsonValue> BridgeClient::waitForResponse(int id)
{
    waitUntil([&] { return m_responses.contains(id) || !isOpen(); }, 30000);
    if (!m_responses.contains(id))
        return std::nullopt;
    return m_responses.take(id);
}

QJsonObject BridgeClient::initialize()
{
    const std::optional<QJsonValue> objects = response(send({{"type", kInitType}}));
    return objects ? objects->toObject() : QJsonObject();
}

std::optional<QJsonValue> BridgeClient::call(const QString &method, const QJsonArray &args)
{
    return waitForResponse(send({{"type", 6},
                                 {"object", QStringLiteral("ZtCryptographic")},
                                 {"method", method},
                                 {"args", args}}));
}

QStringList BridgeClient::propertyValues(const QJsonObject &description)
{
    // Each property is [index, name, notify, value].
    QStringList values;
    for (const QJsonValue &property : description.value(QLatin1String("properties")).toArray()) {
        const QJsonArray entry = property.toArray();
        if (entry.at(1).toString() != QLatin1String("objectName"))
            values << entry.at(1).toString() + QLatin1Char('=') + entry.at(3).toVariant().toString();
    }
    return values;
}

int BridgeClient::methodIndex(const QJsonObject &description, const QString &name)
{
    for (const QJsonValue &method : description.value(QLatin1String("methods")).toArray()) {
        const QJsonArray pair = method.toArray();
        if (pair.at(0).toString() == name)
            return pair.at(1).toInt();
    }
    return -1;
}

HttpAnswer httpRequest(quint16 port, const QByteArray &method, const QByteArray &target,
                       const QByteArray &host)
{
    // The server runs on this thread's event loop: wait with it running, never blocking.
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    HttpAnswer answer;
    if (!waitUntil([&] { return socket.state() == QAbstractSocket::ConnectedState; }))
        return answer;
    const QByteArray hostHeader = host.isEmpty() ? "127.0.0.1:" + QByteArray::number(port) : host;
    socket.write(method + ' ' + target + " HTTP/1.1\r\nHost: " + hostHeader
                 + "\r\nUser-Agent: bridge-test\r\n\r\n");
    QByteArray raw;
    waitUntil([&] {
        raw += socket.readAll();
        return socket.state() == QAbstractSocket::UnconnectedState;
    });
    raw += socket.readAll();
    const int end = raw.indexOf("\r\n\r\n");
    if (end < 0)
        return answer;
    const QList<QByteArray> lines = raw.left(end).split('\n');
    answer.status = lines.first().split(' ').value(1).toInt();
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines.at(i).indexOf(':');
        answer.headers.insert(lines.at(i).left(colon).trimmed().toLower(),
                              lines.at(i).mid(colon + 1).trimmed());
    }
    answer.body = raw.mid(end + 4);
    return answer;
}
