#pragma once

#include "key/driver_profile.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <memory>

namespace zthost {

class HostLog;
class KeyObject;
class SkfDriver;

// The key component: the devices a smart-key driver lists, and opening one of them. The plug-in
// calls "count" and "open" by name and parents objects of its own to this one.
//
// Owns the driver and every KeyObject it opened; they are closed and deleted with it, before the
// driver. Key objects are never reused: each open() makes a new one, since the plug-in may still
// call an earlier one, closed or not.
class KeyComponent : public QObject
{
    Q_OBJECT

public:
    // Loads the driver at `driverPath` with `profile` for its type widths. When that fails the
    // component lists no device, and the reason goes to `log` once; when it loads, the widths
    // it was found or set to go to the log's debug lines.
    KeyComponent(const QString &driverPath, DriverProfile profile, HostLog &log,
                 QObject *parent = nullptr);
    // `driver` may be null: no device is listed.
    KeyComponent(std::unique_ptr<SkfDriver> driver, HostLog &log, QObject *parent = nullptr);
    ~KeyComponent() override;

    // Null when the driver could not be loaded.
    const SkfDriver *driver() const { return m_driver.get(); }

    // The devices the driver lists, in its order; empty on failure.
    QStringList deviceNames();

    // How many devices the driver lists now.
    Q_INVOKABLE int count();
    // Connects device `index` (in the driver's order) and opens its first application; null when
    // there is no such device or a step fails (logged). The component owns the answer.
    Q_INVOKABLE QObject *open(int index);

private:
    std::unique_ptr<SkfDriver> m_driver;
    HostLog &m_log;
    QList<QPointer<KeyObject>> m_opened;
};

} // namespace zthost
