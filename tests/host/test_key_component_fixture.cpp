#include "test_key_component_fixture.h"

#include <softskf/provision.h>

#include <QDir>
#include <QFile>

#include <cstdlib>

using namespace zthost;

void KeyComponentTest::SetUp()
{
    ASSERT_TRUE(m_root.isValid());
    ASSERT_TRUE(m_logDir.isValid());
    m_hadRoot = qEnvironmentVariableIsSet("SOFTSKF_ROOT");
    m_savedRoot = qgetenv("SOFTSKF_ROOT");
    qputenv("SOFTSKF_ROOT", QFile::encodeName(m_root.path()));
    m_logPath = m_logDir.filePath(QStringLiteral("host.log"));
    QString error;
    ASSERT_TRUE(log.setFile(m_logPath, &error)) << error.toStdString();
    log.setThreshold(LogLevel::Debug);
}

void KeyComponentTest::TearDown()
{
    m_component.reset();
    if (m_hadRoot)
        qputenv("SOFTSKF_ROOT", m_savedRoot);
    else
        qunsetenv("SOFTSKF_ROOT");
}

void KeyComponentTest::provision(const QString &name, unsigned maxRetries)
{
    softskf::DeviceOptions options;
    options.name = name.toStdString();
    options.userPin = kUserPin;
    options.adminPin = kAdminPin;
    options.maxRetries = maxRetries;
    options.containerName = kContainer;
    options.commonName = "Key Component Test " + name.toStdString();
    options.pbkdf2Iterations = 1; // the PIN checks are not what these tests measure
    std::string error;
    ASSERT_TRUE(softskf::createDevice(m_root.path().toStdString(), options, &error)) << error;
}

void KeyComponentTest::unplug(const QString &name)
{
    ASSERT_TRUE(QDir(m_root.filePath(name)).removeRecursively());
}

KeyComponent &KeyComponentTest::component()
{
    if (!m_component)
        m_component = std::make_unique<KeyComponent>(QStringLiteral(ZT_SOFTSKF_DRIVER_PATH), log);
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
    std::vector<unsigned char> der;
    std::string error;
    const bool found = softskf::getCertificate(
        m_root.path().toStdString(), device.toStdString(), kContainer,
        signing ? softskf::CertificateUsage::Signing : softskf::CertificateUsage::Encryption, &der,
        &error);
    EXPECT_TRUE(found) << error;
    return QByteArray(reinterpret_cast<const char *>(der.data()), int(der.size()));
}
