#include "device_choice.h"

#include "console.h"

#include "key/key_component.h"
#include "key/skf_driver.h"
#include "session/host_session.h"

namespace zthost::cli {

QString unlistedDeviceText(const QString &wanted, const QString &driverPath,
                           const QStringList &listed)
{
    return QStringLiteral("no key device \"%1\": %2 lists %3")
        .arg(wanted, driverPath,
             listed.isEmpty() ? QStringLiteral("none") : listed.join(QStringLiteral(", ")));
}

QString deviceInUseText(const QString &used, const QString &chosen, const QStringList &listed)
{
    QString text = QStringLiteral("\"%1\"").arg(used);
    if (chosen.isEmpty() && listed.size() > 1) {
        text += QStringLiteral(", the first of %1 the driver lists (%2); --device NAME chooses "
                               "another")
                    .arg(listed.size())
                    .arg(listed.join(QStringLiteral(", ")));
    }
    return text;
}

bool checkDeviceChoice(HostSession &session)
{
    KeyComponent *key = session.keyComponent();
    if (!key || key->deviceChoice().isEmpty() || !key->driver())
        return true;
    const QStringList listed = key->driverDeviceNames();
    if (listed.contains(key->deviceChoice()))
        return true;
    printError(unlistedDeviceText(key->deviceChoice(), key->driver()->path(), listed));
    return false;
}

QString deviceToOpenText(HostSession &session)
{
    KeyComponent *key = session.keyComponent();
    if (!key)
        return QString();
    const QStringList listed = key->driverDeviceNames();
    if (listed.isEmpty())
        return QString();
    const QString used = key->deviceChoice().isEmpty() ? listed.first() : key->deviceChoice();
    return QStringLiteral("key device %1").arg(deviceInUseText(used, key->deviceChoice(), listed));
}

void announceDeviceInUse(HostSession &session)
{
    KeyComponent *key = session.keyComponent();
    if (!key || key->lastOpenedDevice().isEmpty())
        return;
    printError(QStringLiteral("using key device %1")
                   .arg(deviceInUseText(key->lastOpenedDevice(), key->deviceChoice(),
                                        key->driverDeviceNames())));
}

} // namespace zthost::cli
