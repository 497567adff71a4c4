#pragma once

#include <QString>

namespace zthost::bridge {

// An origin a user may approve for the service (`zthost origins add`): a site's https origin,
// or for development an http origin on this machine's loopback names. A page's origin is what
// the browser vouches for; on plain http from elsewhere anyone on the network path could be it.
struct ApprovedOrigin
{
    enum class Kind { Https, LoopbackHttp };

    // Normalised as OriginAllowList does ("HTTPS://Site.example:443" reads
    // "https://site.example").
    QString origin;
    Kind kind = Kind::Https;

    // False with `error` saying why, quoting `text` as given:
    //   "not an origin (scheme://host[:port], nothing after it): \"TEXT\""
    //   "only https origins, or http on 127.0.0.1, localhost or [::1] for development: \"TEXT\""
    static bool parse(const QString &text, ApprovedOrigin *parsed, QString *error);
};

} // namespace zthost::bridge
