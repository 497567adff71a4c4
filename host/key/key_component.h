#pragma once

#include "key/driver_profile.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <memory>

namespace zthost {

class DriverAnswers;
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
    // The same, recording what the driver answers in `answers` (key/driver_answers.h), which a
    // host keeps to explain the plug-in's failures; null records nowhere.
    KeyComponent(const QString &driverPath, DriverProfile profile, HostLog &log,
                 std::shared_ptr<DriverAnswers> answers,
                 QObject *parent = nullptr);
    // `driver` may be null: no device is listed.
    KeyComponent(std::unique_ptr<SkfDriver> driver, HostLog &log, QObject *parent = nullptr);
    ~KeyComponent() override;

    // Null when the driver could not be loaded.
    const SkfDriver *driver() const { return m_driver.get(); }

    // Shows the plug-in only the device named `name` (empty: every device). A name the driver
    // does not list leaves no device to show.
    void setDeviceChoice(const QString &name) { m_deviceChoice = name; }
    const QString &deviceChoice() const { return m_deviceChoice; }

    // The devices the plug-in is shown: those the driver lists, in its order, or only the chosen
    // one; empty on failure.
    QStringList deviceNames();
    // Every device the driver lists, whatever was chosen; empty on failure.
    QStringList driverDeviceNames();
    // The device of the newest key object open() made; empty before the first.
    const QString &lastOpenedDevice() const { return m_lastOpened; }

    // How many devices the driver lists now.
    Q_INVOKABLE int count();
    // Connects device `index` (in the driver's order) and opens its first application; null when
    // there is no such device or a step fails (logged). The component owns the answer.
    Q_INVOKABLE QObject *open(int index);

private:
    std::unique_ptr<SkfDriver> m_driver;
    HostLog &m_log;
    // Never null: a component nobody reads from records into one of its own.
    std::shared_ptr<DriverAnswers> m_answers;
    QString m_deviceChoice;
    QString m_lastOpened;
    QList<QPointer<KeyObject>> m_opened;
};

} // namespace zthost
