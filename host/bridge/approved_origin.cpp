// Reads what a user typed, or what a configuration file holds.
#include "bridge/approved_origin.h"

#include "bridge/origin_allow_list.h"

#include <QUrl>

namespace zthost::bridge {

bool ApprovedOrigin::parse(const QString &text, ApprovedOrigin *parsed, QString *error)
{
    const QString normalised = OriginAllowList::normalise(text);
    if (normalised.isEmpty() || text.trimmed() != text) {
        *error = QStringLiteral("not an origin (scheme://host[:port], nothing after it): \"%1\"").arg(text);
        return false;
    }
    const QUrl url(normalised);
    if (url.scheme() == QLatin1String("https")) {
        *parsed = ApprovedOrigin{normalised, Kind::Https};
        return true;
    }
    const QString host = url.host(QUrl::FullyEncoded);
    if (host == QLatin1String("127.0.0.1") || host == QLatin1String("localhost")
        || host == QLatin1String("::1")) {
        *parsed = ApprovedOrigin{normalised, Kind::LoopbackHttp};
        return true;
    }
    *error = QStringLiteral("only https origins, or http on 127.0.0.1, localhost or [::1] for "
                            "development: \"%1\"")
                 .arg(text);
    return false;
}

} // namespace zthost::bridge
