#pragma once

#include "core/host_log.h"
#include "key/key_component.h"
#include "key/key_object.h"
#include "soft_key_root.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// Each test gets a fresh software-device root (SoftKeyRoot), a host log in a private file at debug level, and a key component over the
// software driver of this build tree.
class KeyComponentTest : public ::testing::Test
{
protected:
    static constexpr const char *kUserPin = "user-pin-4821";
    static constexpr const char *kAdminPin = "admin-pin-7730";
    static constexpr const char *kWrongPin = "wrong-pin-3358";
    static constexpr const char *kContainer = "SM2Container";

    void SetUp() override;
    void TearDown() override;

    // A device with the PINs above and one SM2 container; fails the test when it cannot be made.
    void provision(const QString &name, unsigned maxRetries = 6);
    // Removes a device's folder while the driver may still have it connected.
    void unplug(const QString &name);

    // The driver component() loads: the software device's unless a test names another before
    // its first call of component().
    void useDriver(const QString &path) { m_driverPath = path; }
    // The profile component() loads it with; auto unless a test sets another first.
    void useProfile(zthost::DriverProfile profile) { m_profile = profile; }
    zthost::KeyComponent &component();
    // Device 0, opened; fails the test when it cannot be.
    zthost::KeyObject *openFirst();

    QString rootPath() const { return m_root.path(); }
    QString logText() const;
    // The device's encryption (or signing) certificate as the software device stores it.
    QByteArray storedCertificate(const QString &device, bool signing = false) const;

    zthost::HostLog log;

private:
    SoftKeyRoot m_root;
    QTemporaryDir m_logDir;
    QString m_logPath;
    QString m_driverPath = QStringLiteral(ZT_SOFTSKF_DRIVER_PATH);
    zthost::DriverProfile m_profile = zthost::DriverProfile::Auto;
    std::unique_ptr<zthost::KeyComponent> m_component;
};
