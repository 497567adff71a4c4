#include "e2e_host.h"

#include "test_data.h"

#include "core/standard_components.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QMetaObject>

using namespace zthost;

namespace {

// A host application has an application object; so does this program, made once for all tests.
class HostApplication : public ::testing::Environment
{
public:
    void SetUp() override
    {
        m_app = std::make_unique<QCoreApplication>(m_argc, m_argv);
        // As a host does: the plug-in dumps whole envelopes to Qt's debug channel.
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    }
    void TearDown() override { m_app.reset(); }

private:
    int m_argc = 1;
    char m_name[8] = "zt-e2e";
    char *m_argv[2] = {m_name, nullptr};
    std::unique_ptr<QCoreApplication> m_app;
};

::testing::Environment *const kHostApplication
    = ::testing::AddGlobalTestEnvironment(new HostApplication);

} // namespace

void EndToEnd::SetUp()
{
    ASSERT_TRUE(m_hostLogDir.isValid());
}

void EndToEnd::TearDown()
{
    // The host's order: the plug-in's objects and core agent, then the host core.
    if (m_plugin)
        m_plugin->shutdown();
    m_core.reset();
    m_plugin.reset();
}

void EndToEnd::provision(const QString &device, unsigned maxRetries)
{
    m_root.provision({device, kUserPin, kAdminPin, maxRetries,
                      QStringLiteral("End To End ") + device});
}

void EndToEnd::unplug(const QString &device)
{
    m_root.unplug(device);
}

QByteArray EndToEnd::storedCertificate(const QString &device) const
{
    return m_root.certificate(device);
}

void EndToEnd::startHost()
{
    m_core = std::make_unique<HostCore>();
    QString error;
    ASSERT_TRUE(m_core->log().setFile(m_hostLogDir.filePath(QStringLiteral("host.log")), &error))
        << error.toStdString();
    m_core->log().setThreshold(LogLevel::Debug);
    StandardComponentOptions options;
    options.skfDriverPath = QStringLiteral(ZT_SOFTSKF_DRIVER_PATH);
    registerStandardComponents(*m_core, options);

    m_plugin = PluginLoader::load(QStringLiteral(ZT_PLUGIN_PATH), &error);
    ASSERT_NE(m_plugin, nullptr) << error.toStdString();
    ASSERT_TRUE(m_plugin->initialize(m_core.get(), &error)) << error.toStdString();
    crypto = m_plugin->createScriptableObject();
    ASSERT_NE(crypto, nullptr);
}

bool EndToEnd::openKey()
{
    bool opened = false;
    EXPECT_TRUE(QMetaObject::invokeMethod(crypto, "WebOpenKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, opened)));
    return opened;
}

bool EndToEnd::closeKey()
{
    bool closed = false;
    EXPECT_TRUE(QMetaObject::invokeMethod(crypto, "WebCloseKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, closed)));
    return closed;
}

bool EndToEnd::verifyPin(const QString &pin)
{
    bool verified = false;
    EXPECT_TRUE(QMetaObject::invokeMethod(crypto, "WebVerifyPin", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, verified), Q_ARG(QString, pin)));
    return verified;
}

QString EndToEnd::certificateData()
{
    QString certificate;
    EXPECT_TRUE(QMetaObject::invokeMethod(crypto, "WebGetCertData", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, certificate),
                                          Q_ARG(QString, QStringLiteral("0"))));
    return certificate;
}

QString EndToEnd::decode(const QString &base64Envelope, qulonglong algorithm)
{
    QString plaintext;
    EXPECT_TRUE(QMetaObject::invokeMethod(
        crypto, "WebZtDecode", Qt::DirectConnection, Q_RETURN_ARG(QString, plaintext),
        Q_ARG(QString, base64Envelope), Q_ARG(qulonglong, algorithm)));
    return plaintext;
}

QString EndToEnd::lastErrorMessage()
{
    QString message;
    EXPECT_TRUE(QMetaObject::invokeMethod(crypto, "WebGetLastErrorMsg", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, message)));
    return message;
}

QString EndToEnd::messageOf(qulonglong code)
{
    static const QHash<qulonglong, QString> table = [] {
        QHash<qulonglong, QString> messages;
        QFile file(testDataFile("error_messages.tsv"));
        if (!file.open(QIODevice::ReadOnly))
            return messages;
        for (const QByteArray &line : file.readAll().split('\n')) {
            const int tab = line.indexOf('\t');
            if (tab < 0)
                continue;
            bool ok = false;
            const qulonglong value = line.left(tab).toULongLong(&ok, 0);
            if (ok)
                messages.insert(value, QString::fromUtf8(line.mid(tab + 1)));
        }
        return messages;
    }();
    const QString message = table.value(code);
    EXPECT_FALSE(message.isEmpty()) << "no message for code 0x" << std::hex << code;
    return message;
}

QString EndToEnd::hostLogText() const
{
    QFile file(m_hostLogDir.filePath(QStringLiteral("host.log")));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}
