#include "key/default_driver.h"

#include <QFileInfo>

namespace zthost {

QStringList defaultSkfDriverCandidates()
{
    QStringList candidates;
#ifdef ZT_BUILT_SOFTSKF_PATH
    // Absent when the host is configured without the software device.
    if (sizeof(ZT_BUILT_SOFTSKF_PATH) > 1)
        candidates << QStringLiteral(ZT_BUILT_SOFTSKF_PATH);
#endif
    candidates << QStringLiteral(ZT_INSTALLED_SOFTSKF_PATH);
    return candidates;
}

QString defaultSkfDriverPath()
{
    const QStringList candidates = defaultSkfDriverCandidates();
    for (const QString &candidate : candidates) {
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return candidates.last();
}

} // namespace zthost
