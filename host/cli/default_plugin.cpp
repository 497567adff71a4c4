#include "default_plugin.h"

#include <QFileInfo>

namespace zthost::cli {

QStringList defaultPluginCandidates()
{
    return {QStringLiteral(ZT_BUILT_PLUGIN_PATH), QStringLiteral(ZT_INSTALLED_PLUGIN_PATH)};
}

QString defaultPluginPath()
{
    const QStringList candidates = defaultPluginCandidates();
    for (const QString &candidate : candidates) {
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return candidates.last();
}

} // namespace zthost::cli
