#include "driver_profile_setting.h"

#include "configuration_file.h"

namespace zthost::cli {

namespace {

std::optional<DriverProfile> parsed(const QString &text, const QString &where, QString *error)
{
    const std::optional<DriverProfile> profile = parseDriverProfile(text);
    if (!profile)
        *error = QStringLiteral("%1 \"%2\" is not one of %3")
                     .arg(where, text, driverProfileNames().join(QStringLiteral(", ")));
    return profile;
}

} // namespace

std::optional<DriverProfile> resolveDriverProfile(const std::optional<QString> &option,
                                                  QString *error)
{
    if (option)
        return parsed(*option, QStringLiteral("--driver-profile"), error);
    const QString variable = qEnvironmentVariable(kDriverProfileVariable);
    if (!variable.isEmpty())
        return parsed(variable, QLatin1String(kDriverProfileVariable), error);
    const std::unique_ptr<QSettings> file = openConfiguration();
    if (file->contains(ConfigKey::kDriverProfile))
        return parsed(file->value(ConfigKey::kDriverProfile).toString(),
                      QStringLiteral("%1 in %2").arg(ConfigKey::kDriverProfile, file->fileName()),
                      error);
    return DriverProfile::Auto;
}

} // namespace zthost::cli
