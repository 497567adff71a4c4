#include "bridge/default_web_root.h"

#include <QDir>
#include <QFileInfo>

namespace zthost::bridge {

QStringList defaultWebRootCandidates()
{
    return {QStringLiteral(ZT_WEB_SOURCE_DIR), QStringLiteral(ZT_WEB_INSTALL_DIR)};
}

QString defaultWebRoot()
{
    const QStringList candidates = defaultWebRootCandidates();
    for (const QString &candidate : candidates) {
        if (QFileInfo(QDir(candidate).filePath(QStringLiteral("index.html"))).isFile())
            return candidate;
    }
    return candidates.last();
}

} // namespace zthost::bridge
