#include "bridge/http_response.h"

namespace zthost::bridge {

const char *HttpResponse::reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 421: return "Misdirected Request";
    case 431: return "Request Header Fields Too Large";
    case 500: return "Internal Server Error";
    case 503: return "Service Unavailable";
    default: return "Error";
    }
}

HttpResponse HttpResponse::plainText(int status, const QByteArray &text)
{
    HttpResponse response;
    response.status = status;
    response.contentType = "text/plain; charset=utf-8";
    response.body = text + '\n';
    return response;
}

QByteArray HttpResponse::serialise(const QByteArray &csp, bool headOnly) const
{
    QByteArray out;
    out += "HTTP/1.1 " + QByteArray::number(status) + ' ' + reasonPhrase(status) + "\r\n";
    if (!contentType.isEmpty())
        out += "Content-Type: " + contentType + "\r\n";
    out += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    if (!allow.isEmpty())
        out += "Allow: " + allow + "\r\n";
    out += "Cache-Control: no-store\r\n"
           "X-Content-Type-Options: nosniff\r\n"
           "X-Frame-Options: DENY\r\n"
           "Referrer-Policy: no-referrer\r\n"
           "Cross-Origin-Resource-Policy: same-origin\r\n"
           "Cross-Origin-Opener-Policy: same-origin\r\n";
    out += "Content-Security-Policy: " + csp + "\r\n";
    out += "Connection: close\r\n\r\n";
    if (!headOnly)
        out += body;
    return out;
}

} // namespace zthost::bridge
