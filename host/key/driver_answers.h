#pragma once

#include <QList>
#include <QString>

#include <cstdint>

namespace zthost {

// One failure a smart-key driver answered to the key component.
struct DriverFailure
{
    QString device;      // the key device's name; empty for calls on no device (SKF_EnumDev)
    QString function;    // "SKF_VerifyPIN"
    std::uint32_t code = 0;
    long triesLeft = -1; // SKF_VerifyPIN with SAR_PIN_INCORRECT: the tries the driver said are left
    bool adminPin = false;
};

// What the key component saw of its driver since the last clear(): the driver's load failure,
// the devices it listed, and the failures it answered, in order. The plug-in turns all of them
// into a handful of fixed messages; a host that wants to say which cause it was reads them here.
//
// Holds no PIN and no key material: names, function names, codes and counts only. At most
// kFailuresKept failures are kept, the first ones, since the first failure of a call is the
// cause and later ones are its consequences (handles closed on the way out).
class DriverAnswers
{
public:
    static constexpr int kFailuresKept = 16;

    // Forgets the failures and the device count; the load error stays, as the driver does.
    void clear();

    void recordLoadError(const QString &error) { m_loadError = error; }
    void recordDevicesListed(int count) { m_devicesListed = count; }
    void recordFailure(const DriverFailure &failure);

    // Empty when the driver loaded (or was never asked for).
    const QString &loadError() const { return m_loadError; }
    const QString &driverPath() const { return m_driverPath; }
    void setDriverPath(const QString &path) { m_driverPath = path; }
    // How many devices the driver listed the last time it was asked; -1 when it was not asked.
    int devicesListed() const { return m_devicesListed; }
    const QList<DriverFailure> &failures() const { return m_failures; }

private:
    QString m_driverPath;
    QString m_loadError;
    int m_devicesListed = -1;
    QList<DriverFailure> m_failures;
};

} // namespace zthost
