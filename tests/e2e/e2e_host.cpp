#include "e2e_host.h"

#include "test_data.h"

#include <QDir>
#include <QFile>

using namespace zthost;

void EndToEnd::SetUp()
{
    ASSERT_TRUE(m_hostLogDir.isValid());
}

void EndToEnd::TearDown()
{
    m_session.reset();
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
    zthost::SessionOptions options;
    options.pluginPath = QStringLiteral(ZT_PLUGIN_PATH);
    options.skfDriverPath = QStringLiteral(ZT_SOFTSKF_DRIVER_PATH);
    options.softKeyRoot = m_root.path();
    options.hostLogPath = m_hostLogDir.filePath(QStringLiteral("host.log"));
    // The plug-in's trace in the host log; Qt's debug channel off, as a host has it.
    options.verbosity = zthost::Verbosity::Trace;
    QString error;
    m_session = HostSession::start(options, &error);
    ASSERT_NE(m_session, nullptr) << error.toStdString();
}

namespace {
// The answer of a call that must have been made; `failure` (the method's failure value) when not.
QVariant answerOf(const Invocation &invocation, const QVariant &failure)
{
    EXPECT_TRUE(invocation.called) << invocation.error.toStdString();
    return invocation.called ? invocation.value : failure;
}
} // namespace

bool EndToEnd::openKey()
{
    return answerOf(m_session->invoke(QStringLiteral("WebOpenKey")), false).toBool();
}

bool EndToEnd::closeKey()
{
    return answerOf(m_session->invoke(QStringLiteral("WebCloseKey")), false).toBool();
}

bool EndToEnd::verifyPin(const QString &pin)
{
    return answerOf(m_session->invoke(QStringLiteral("WebVerifyPin"), {pin}), false).toBool();
}

QString EndToEnd::certificateData()
{
    return answerOf(m_session->invoke(QStringLiteral("WebGetCertData"), {QStringLiteral("0")}),
                    QStringLiteral("false"))
        .toString();
}

QString EndToEnd::decode(const QString &base64Envelope, qulonglong algorithm)
{
    return answerOf(m_session->invoke(QStringLiteral("WebZtDecode"),
                                      {base64Envelope, QVariant::fromValue(algorithm)}),
                    QStringLiteral("false"))
        .toString();
}

QString EndToEnd::lastErrorMessage()
{
    return answerOf(m_session->invoke(QStringLiteral("WebGetLastErrorMsg")), QString()).toString();
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
