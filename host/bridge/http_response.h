#pragma once

#include <QByteArray>

namespace zthost::bridge {

// One complete HTTP/1.1 response, after which the server closes the connection. Every response
// carries the same hardening headers: no caching (the page talks to a key), no framing, no
// MIME sniffing, no referrer (the page's address holds the access token), and `csp` as its
// Content-Security-Policy.
struct HttpResponse
{
    int status = 200;
    QByteArray contentType;   // empty for a response without body text
    QByteArray body;
    QByteArray allow;         // the Allow header of a 405, e.g. "GET, HEAD"

    // `headOnly` for a HEAD request: the headers of the same response, without the body.
    QByteArray serialise(const QByteArray &csp, bool headOnly = false) const;

    static HttpResponse plainText(int status, const QByteArray &text);
    static const char *reasonPhrase(int status);
};

} // namespace zthost::bridge
