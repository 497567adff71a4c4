#include "bridge/default_web_root.h"

#include "session/default_paths.h"

#include <QDir>
#include <QFileInfo>

namespace zthost::bridge {

QStringList defaultWebRootCandidates()
{
    QStringList candidates;
    if (runsFromBuildTree())
        candidates << QStringLiteral(ZT_WEB_SOURCE_DIR);
    candidates << besideExecutable(QStringLiteral(ZT_WEB_DIR_FROM_BINDIR));
    return candidates;
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
