#include "key/key_component.h"

#include "core/host_log.h"
#include "key/driver_answers.h"
#include "key/key_object.h"
#include "key/name_list.h"
#include "key/skf_driver.h"
#include "key/skf_errors.h"

namespace zthost {

namespace {

std::unique_ptr<SkfDriver> loadOrLog(const QString &path, DriverProfile profile, HostLog &log,
                                     DriverAnswers *answers)
{
    QString error;
    std::unique_ptr<SkfDriver> driver = SkfDriver::load(path, profile, &error);
    if (answers)
        answers->setDriverPath(path);
    if (!driver) {
        log.error(error);
        if (answers)
            answers->recordLoadError(error);
    } else {
        log.debug(QStringLiteral("smart-key driver %1: %2").arg(path, driver->widthDescription()));
    }
    return driver;
}

} // namespace

KeyComponent::KeyComponent(const QString &driverPath, DriverProfile profile, HostLog &log,
                           QObject *parent)
    : KeyComponent(driverPath, profile, log, nullptr, parent)
{}

KeyComponent::KeyComponent(const QString &driverPath, DriverProfile profile, HostLog &log,
                           std::shared_ptr<DriverAnswers> answers, QObject *parent)
    : KeyComponent(loadOrLog(driverPath, profile, log, answers.get()), log, parent)
{
    if (answers)
        m_answers = std::move(answers);
}

KeyComponent::KeyComponent(std::unique_ptr<SkfDriver> driver, HostLog &log, QObject *parent)
    : QObject(parent),
      m_driver(std::move(driver)),
      m_log(log),
      m_answers(std::make_shared<DriverAnswers>())
{}

KeyComponent::~KeyComponent()
{
    // Key objects release their handles through the driver, so they go first. Objects of the
    // plug-in parented to this component are deleted afterwards by QObject.
    for (const QPointer<KeyObject> &key : qAsConst(m_opened))
        delete key.data();
    m_opened.clear();
}

QStringList KeyComponent::deviceNames()
{
    QStringList names = driverDeviceNames();
    if (m_deviceChoice.isEmpty())
        return names;
    if (names.contains(m_deviceChoice))
        return {m_deviceChoice};
    m_log.warning(QStringLiteral("no key device \"%1\" among the %2 the driver lists")
                      .arg(m_deviceChoice)
                      .arg(names.size()));
    return {};
}

QStringList KeyComponent::driverDeviceNames()
{
    QStringList names;
    if (!m_driver)
        return names;
    const ULONG code = readNameList(
        [this](LPSTR list, ULONG *size) { return m_driver->enumDev(true, list, size); },
        &names);
    if (code != SAR_OK) {
        m_log.error(skfFailureText("SKF_EnumDev", code));
        m_answers->recordFailure({QString(), QStringLiteral("SKF_EnumDev"), code});
        names.clear();
    }
    m_answers->recordDevicesListed(names.size());
    return names;
}

int KeyComponent::count()
{
    return deviceNames().size();
}

QObject *KeyComponent::open(int index)
{
    const QStringList names = deviceNames();
    if (index < 0 || index >= names.size()) {
        m_log.warning(
            QStringLiteral("no key device at index %1 (%2 listed)").arg(index).arg(names.size()));
        return nullptr;
    }
    const QString &name = names.at(index);
    QByteArray encodedName = name.toUtf8();
    DEVHANDLE device = nullptr;
    ULONG code = m_driver->connectDev(encodedName.data(), &device);
    if (code != SAR_OK || !device) {
        m_log.error(QStringLiteral("key device \"%1\": %2")
                        .arg(name, skfFailureText("SKF_ConnectDev", code)));
        m_answers->recordFailure({name, QStringLiteral("SKF_ConnectDev"), code});
        return nullptr;
    }

    QStringList applications;
    code = readNameList(
        [this, device](LPSTR list, ULONG *size) {
            return m_driver->enumApplication(device, list, size);
        },
        &applications);
    if (code != SAR_OK || applications.isEmpty()) {
        m_log.error(QStringLiteral("key device \"%1\": %2")
                        .arg(name, code != SAR_OK ? skfFailureText("SKF_EnumApplication", code)
                                                  : QStringLiteral("holds no application")));
        if (code != SAR_OK)
            m_answers->recordFailure({name, QStringLiteral("SKF_EnumApplication"), code});
        m_driver->disconnectDev(device);
        return nullptr;
    }

    QByteArray encodedApplication = applications.first().toUtf8();
    HAPPLICATION application = nullptr;
    code = m_driver->openApplication(device, encodedApplication.data(), &application);
    if (code != SAR_OK || !application) {
        m_log.error(
            QStringLiteral("key device \"%1\": %2, application \"%3\"")
                .arg(name, skfFailureText("SKF_OpenApplication", code), applications.first()));
        m_answers->recordFailure({name, QStringLiteral("SKF_OpenApplication"), code});
        m_driver->disconnectDev(device);
        return nullptr;
    }

    auto *key = new KeyObject(*m_driver, m_log, name, device, application, this);
    key->setAnswers(m_answers);
    m_lastOpened = name;
    m_opened.append(QPointer<KeyObject>(key));
    return key;
}

} // namespace zthost
