#include "key/driver_profile.h"

namespace zthost {

QString driverProfileName(DriverProfile profile)
{
    switch (profile) {
    case DriverProfile::Auto:
        return QStringLiteral("auto");
    case DriverProfile::Standard:
        return QStringLiteral("standard");
    case DriverProfile::Wide:
        return QStringLiteral("wide");
    }
    return QString();
}

QStringList driverProfileNames()
{
    return {driverProfileName(DriverProfile::Auto), driverProfileName(DriverProfile::Standard),
            driverProfileName(DriverProfile::Wide)};
}

std::optional<DriverProfile> parseDriverProfile(const QString &text)
{
    for (DriverProfile profile :
         {DriverProfile::Auto, DriverProfile::Standard, DriverProfile::Wide}) {
        if (text == driverProfileName(profile))
            return profile;
    }
    return std::nullopt;
}

int ulongBytesOf(DriverProfile profile)
{
    switch (profile) {
    case DriverProfile::Standard:
        return 4;
    case DriverProfile::Wide:
        return 8;
    case DriverProfile::Auto:
        break;
    }
    return 0;
}

} // namespace zthost
