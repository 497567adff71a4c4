#include "cli_process.h"

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>

#include <openssl/bn.h>
#include <openssl/x509.h>

#include <memory>

namespace {
// Generous: the slowest command, the demo, takes well under a second.
constexpr int kProcessTimeoutMs = 30000;
} // namespace

QString CliTest::serialOf(const QByteArray &der)
{
    const auto *p = reinterpret_cast<const unsigned char *>(der.constData());
    std::unique_ptr<X509, decltype(&X509_free)> certificate(d2i_X509(nullptr, &p, der.size()),
                                                            &X509_free);
    if (!certificate)
        return QStringLiteral("(no certificate)");
    std::unique_ptr<BIGNUM, decltype(&BN_free)> serial(
        ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate.get()), nullptr), &BN_free);
    char *hex = BN_bn2hex(serial.get());
    const QString text = QString::fromLatin1(hex);
    OPENSSL_free(hex);
    return text;
}

void CliTest::SetUp()
{
    ASSERT_TRUE(m_temp.isValid());
    ASSERT_TRUE(m_work.isValid());
    ASSERT_TRUE(m_config.isValid());
}

CliRun CliTest::run(const QStringList &arguments, const QHash<QString, QString> &environment,
                    const QByteArray &standardInput)
{
    return runProgram(QStringLiteral(ZTHOST_PATH), arguments, environment, standardInput);
}

CliRun CliTest::runWithInput(const QStringList &arguments, const QByteArray &standardInput,
                             const QHash<QString, QString> &environment)
{
    return run(arguments, environment, standardInput);
}

CliRun CliTest::runAfterShell(const QString &shellCommands, const QStringList &arguments,
                              const QByteArray &standardInput)
{
    return runProgram(QStringLiteral("/bin/sh"),
                      QStringList{QStringLiteral("-c"),
                                  shellCommands + QStringLiteral("; exec \"$0\" \"$@\""),
                                  QStringLiteral(ZTHOST_PATH)}
                          + arguments,
                      {}, standardInput);
}

CliRun CliTest::runProgram(const QString &program, const QStringList &arguments,
                           const QHash<QString, QString> &environment,
                           const QByteArray &standardInput)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("ZTHOST_PIN"));
    env.remove(QStringLiteral("ZTHOST_NEW_PIN"));
    env.remove(QStringLiteral("ZTHOST_ADMIN_PIN"));
    // The settings a user may have set must not reach the tests.
    for (const char *variable :
         {"ZTHOST_PLUGIN", "ZTHOST_SKF", "ZTHOST_DEVICE", "ZTHOST_DRIVER_PROFILE"})
        env.remove(QLatin1String(variable));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_config.path());
    env.insert(QStringLiteral("SOFTSKF_ROOT"), m_root.path());
    env.insert(QStringLiteral("TMPDIR"), m_temp.path());
    for (auto it = environment.cbegin(); it != environment.cend(); ++it)
        env.insert(it.key(), it.value());

    QProcess process;
    process.setProcessEnvironment(env);
    process.setWorkingDirectory(m_work.path());
    process.start(program, arguments);
    CliRun result;
    if (!process.waitForStarted(kProcessTimeoutMs)) {
        ADD_FAILURE() << "zthost did not start: " << process.errorString().toStdString();
        return result;
    }
    if (!standardInput.isEmpty())
        process.write(standardInput);
    process.closeWriteChannel();
    if (!process.waitForFinished(kProcessTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        ADD_FAILURE() << "zthost did not finish in " << kProcessTimeoutMs << " ms";
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

void CliTest::provision(const QString &device, unsigned maxRetries)
{
    m_root.provision({device, kUserPin, kAdminPin, maxRetries, QString()});
}

QByteArray CliTest::storedCertificate(const QString &device) const
{
    return m_root.certificate(device);
}

void CliTest::writeWorkFile(const QString &name, const QByteArray &bytes) const
{
    QFile file(m_work.filePath(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QByteArray CliTest::readWorkFile(const QString &name) const
{
    QFile file(m_work.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
    return file.readAll();
}
