#include "bridge/origin_allow_list.h"

#include <QUrl>

namespace zthost::bridge {

QString OriginAllowList::normalise(const QString &origin)
{
    const QUrl url(origin, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || !url.userInfo().isEmpty()
        || !(url.path().isEmpty() || url.path() == QLatin1String("/")) || url.hasQuery()
        || url.hasFragment())
        return QString();
    const QString scheme = url.scheme().toLower();
    if (scheme != QLatin1String("http") && scheme != QLatin1String("https"))
        return QString();
    const int defaultPort = scheme == QLatin1String("https") ? 443 : 80;
    QString host = url.host(QUrl::FullyEncoded).toLower();
    // An IPv6 address keeps its brackets, as a browser's Origin has them.
    if (host.contains(QLatin1Char(':')))
        host = QLatin1Char('[') + host + QLatin1Char(']');
    QString text = scheme + QLatin1String("://") + host;
    if (url.port() != -1 && url.port() != defaultPort)
        text += QLatin1Char(':') + QString::number(url.port());
    return text;
}

bool OriginAllowList::add(const QString &origin, QString *error)
{
    const QString normalised = normalise(origin);
    if (normalised.isEmpty()) {
        if (error)
            *error = QStringLiteral("not an origin (scheme://host[:port]): \"%1\"").arg(origin);
        return false;
    }
    if (!m_origins.contains(normalised))
        m_origins << normalised;
    return true;
}

bool OriginAllowList::allows(const QString &origin) const
{
    const QString normalised = normalise(origin);
    return !normalised.isEmpty() && m_origins.contains(normalised);
}

} // namespace zthost::bridge
