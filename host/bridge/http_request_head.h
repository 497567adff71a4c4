#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QUrlQuery>

namespace zthost::bridge {

// The head of one HTTP/1.x request as a browser sends it; parses untrusted bytes from any local
// process.
struct HttpRequestHead
{
    enum class Parse { Incomplete, Complete, Malformed, TooLarge };

    // Larger heads are refused: a page's requests stay far below this.
    static constexpr int kMaxHeadBytes = 8 * 1024;

    // Reads the head from the start of `bytes` (the body, if any, is not looked at). Complete
    // once the blank line that ends the head is there; TooLarge when kMaxHeadBytes pass
    // without it.
    static Parse parse(const QByteArray &bytes, HttpRequestHead *head);

    QByteArray method;        // "GET"
    QString path;             // "/index.html": percent-decoded, without the query
    QUrlQuery query;          // "token=..."
    // Header names in lower case; a repeated header keeps its last value.
    QHash<QByteArray, QByteArray> headers;

    QByteArray header(const QByteArray &lowerCaseName) const { return headers.value(lowerCaseName); }
    // Upgrade: websocket, with Connection naming Upgrade.
    bool isWebSocketUpgrade() const;
};

} // namespace zthost::bridge
