#include "configuration_file.h"

#include <QDir>

namespace zthost::cli {

QString configurationFilePath()
{
    // The XDG rule itself rather than QStandardPaths, whose answer differs between platforms
    // and test modes; an empty or relative XDG_CONFIG_HOME is ignored, as the rule says.
    QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (base.isEmpty() || QDir::isRelativePath(base))
        base = QDir::homePath() + QStringLiteral("/.config");
    return base + QStringLiteral("/zthost/zthost.conf");
}

std::unique_ptr<QSettings> openConfiguration()
{
    return openConfiguration(configurationFilePath());
}

std::unique_ptr<QSettings> openConfiguration(const QString &path)
{
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
}

} // namespace zthost::cli
