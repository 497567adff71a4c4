#include "bridge/peer_text.h"

namespace zthost::bridge {

QString withoutToken(QString line, const AccessToken &token)
{
    if (!token.text().isEmpty())
        line.replace(token.text(), QLatin1String(kTokenPlaceholder));
    return line;
}

QString peerText(const QString &text, const AccessToken &token)
{
    // The host log escapes what is left.
    const QString shown = withoutToken(text, token);
    if (shown.size() <= kMaxPeerTextChars)
        return shown;
    return shown.left(kMaxPeerTextChars) + QStringLiteral("...(%1 characters in all)").arg(shown.size());
}

} // namespace zthost::bridge
