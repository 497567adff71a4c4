#include "soft_key_root.h"

#include <softskf/provision.h>

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <string>
#include <vector>

SoftKeyRoot::SoftKeyRoot() : m_hadRoot(qEnvironmentVariableIsSet("SOFTSKF_ROOT"))
{
    EXPECT_TRUE(m_root.isValid());
    m_savedRoot = qgetenv("SOFTSKF_ROOT");
    qputenv("SOFTSKF_ROOT", QFile::encodeName(m_root.path()));
}

SoftKeyRoot::~SoftKeyRoot()
{
    if (m_hadRoot)
        qputenv("SOFTSKF_ROOT", m_savedRoot);
    else
        qunsetenv("SOFTSKF_ROOT");
}

void SoftKeyRoot::provision(const Device &device)
{
    softskf::DeviceOptions options;
    options.name = device.name.toStdString();
    options.userPin = device.userPin;
    options.adminPin = device.adminPin;
    options.maxRetries = device.maxRetries;
    options.containerName = kContainer;
    options.commonName = device.commonName.toStdString();
    options.pbkdf2Iterations = 1;
    std::string error;
    EXPECT_TRUE(softskf::createDevice(path().toStdString(), options, &error)) << error;
}

void SoftKeyRoot::unplug(const QString &device)
{
    EXPECT_TRUE(QDir(m_root.filePath(device)).removeRecursively()) << device.toStdString();
}

QByteArray SoftKeyRoot::certificate(const QString &device, bool signing) const
{
    std::vector<unsigned char> der;
    std::string error;
    EXPECT_TRUE(softskf::getCertificate(path().toStdString(), device.toStdString(), kContainer,
                                        signing ? softskf::CertificateUsage::Signing
                                                : softskf::CertificateUsage::Encryption,
                                        &der, &error))
        << error;
    return QByteArray(reinterpret_cast<const char *>(der.data()), int(der.size()));
}
