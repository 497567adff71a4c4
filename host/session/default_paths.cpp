#include "session/default_paths.h"

#include <QFileInfo>

namespace zthost {

namespace {
QString firstExisting(const QStringList &candidates)
{
    for (const QString &candidate : candidates) {
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return candidates.last();
}
} // namespace

QStringList defaultPluginCandidates()
{
    return {QStringLiteral(ZT_BUILT_PLUGIN_PATH), QStringLiteral(ZT_INSTALLED_PLUGIN_PATH)};
}

QString defaultPluginPath()
{
    return firstExisting(defaultPluginCandidates());
}

QStringList defaultSkfDriverCandidates()
{
    QStringList candidates;
    // Empty when the host is configured without the software device.
    if (sizeof(ZT_BUILT_SOFTSKF_PATH) > 1)
        candidates << QStringLiteral(ZT_BUILT_SOFTSKF_PATH);
    candidates << QStringLiteral(ZT_INSTALLED_SOFTSKF_PATH);
    return candidates;
}

QString defaultSkfDriverPath()
{
    return firstExisting(defaultSkfDriverCandidates());
}

} // namespace zthost
