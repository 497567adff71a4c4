#include "test_key_component_fixture.h"

#include <QDir>
#include <QFile>

#include <cstdlib>

using namespace zthost;

void KeyComponentTest::SetUp()
{
    ASSERT_TRUE(m_logDir.isValid());
    m_logPath = m_logDir.filePath(QStringLiteral("host.log"));
    QString error;
    ASSERT_TRUE(log.setFile(m_logPath, &error)) << error.toStdString();
    log.setThreshold(LogLevel::Debug);
}

void KeyComponentTest::TearDown()
{
    m_component.reset();
}

void KeyComponentTest::provision(const QString &name, unsigned maxRetries)
{
    m_root.provision({name, kUserPin, kAdminPin, maxRetries,
                      QStringLiteral("Key Component Test ") + name});
}

void KeyComponentTest::unplug(const QString &name)
{
    m_root.unplug(name);
}

KeyComponent &KeyComponentTest::component()
{
    if (!m_component)
        m_component = std::make_unique<KeyComponent>(m_driverPath, m_profile, log);
    return *m_component;
}

KeyObject *KeyComponentTest::openFirst()
{
    QObject *opened = component().open(0);
    EXPECT_NE(opened, nullptr) << logText().toStdString();
    return qobject_cast<KeyObject *>(opened);
}

QString KeyComponentTest::logText() const
{
    QFile file(m_logPath);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QByteArray KeyComponentTest::storedCertificate(const QString &device, bool signing) const
{
    return m_root.certificate(device, signing);
}
