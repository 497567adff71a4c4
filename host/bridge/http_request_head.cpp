#include "bridge/http_request_head.h"

#include <QList>
#include <QUrl>

namespace zthost::bridge {

namespace {

bool isToken(const QByteArray &text)
{
    if (text.isEmpty())
        return false;
    for (char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (u <= 0x20 || u >= 0x7f || c == ':')
            return false;
    }
    return true;
}

bool hasControlCharacters(const QByteArray &text)
{
    for (char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if ((u < 0x20 && c != '\t') || u == 0x7f)
            return true;
    }
    return false;
}

} // namespace

HttpRequestHead::Parse HttpRequestHead::parse(const QByteArray &bytes, HttpRequestHead *head)
{
    const int end = bytes.indexOf("\r\n\r\n");
    if (end < 0)
        return bytes.size() > kMaxHeadBytes ? Parse::TooLarge : Parse::Incomplete;
    if (end + 4 > kMaxHeadBytes)
        return Parse::TooLarge;

    const QList<QByteArray> lines = bytes.left(end).split('\n');
    QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    if (requestLine.size() != 3 || !isToken(requestLine.at(0))
        || !requestLine.at(2).startsWith("HTTP/1."))
        return Parse::Malformed;
    const QByteArray target = requestLine.at(1);
    // Only origin-form targets ("/path?query"): a browser sends nothing else to a server.
    if (!target.startsWith('/') || hasControlCharacters(target))
        return Parse::Malformed;

    HttpRequestHead parsed;
    parsed.method = requestLine.at(0);
    const int question = target.indexOf('?');
    const QByteArray rawPath = question < 0 ? target : target.left(question);
    parsed.path = QUrl::fromPercentEncoding(rawPath);
    if (question >= 0)
        parsed.query = QUrlQuery(QString::fromLatin1(target.mid(question + 1)));

    for (int i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines.at(i).endsWith('\r') ? lines.at(i).chopped(1) : lines.at(i);
        const int colon = line.indexOf(':');
        if (colon <= 0 || !isToken(line.left(colon)) || hasControlCharacters(line))
            return Parse::Malformed;
        parsed.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
    }
    *head = parsed;
    return Parse::Complete;
}

bool HttpRequestHead::isWebSocketUpgrade() const
{
    if (header("upgrade").toLower() != "websocket")
        return false;
    for (const QByteArray &part : header("connection").split(',')) {
        if (part.trimmed().toLower() == "upgrade")
            return true;
    }
    return false;
}

} // namespace zthost::bridge
