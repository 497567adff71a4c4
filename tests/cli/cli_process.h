#pragma once

#include "soft_key_root.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// One run of the built zthost command.
struct CliRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;

    QString outText() const { return QString::fromUtf8(out); }
    QString errText() const { return QString::fromUtf8(err); }
};

// The zthost command as a process, each test with its own software device root (SOFTSKF_ROOT),
// TMPDIR and configuration folder (XDG_CONFIG_HOME), removed afterwards. The process gets no terminal and no ZTHOST_PIN (nor
// ZTHOST_NEW_PIN, ZTHOST_ADMIN_PIN) unless a test
// sets one, so it never waits for a typed PIN.
class CliTest : public ::testing::Test
{
protected:
    static constexpr const char *kUserPin = "cli-user-2468";
    static constexpr const char *kAdminPin = "cli-admin-1357";
    static constexpr const char *kWrongPin = "cli-wrong-9999";
    static constexpr const char *kContainer = "SM2Container";

    void SetUp() override;

    // The line every command that used a key writes on standard error, for a device chosen or
    // the only one listed.
    static QByteArray usingDevice(const char *device)
    {
        return QByteArray("zthost: using key device \"") + device + "\"\n";
    }

    // A DER certificate's serial number as upper-case hexadecimal, read by OpenSSL on its own,
    // as the diagnosis line names it.
    static QString serialOf(const QByteArray &der);

    // Runs zthost with `arguments`; `environment` adds or replaces variables.
    CliRun run(const QStringList &arguments,
               const QHash<QString, QString> &environment = QHash<QString, QString>(),
               const QByteArray &standardInput = QByteArray());
    // The same through `sh -c "<shellCommands>; exec zthost ARGUMENTS"`, for limits a test sets
    // on the process (ulimit).
    CliRun runAfterShell(const QString &shellCommands, const QStringList &arguments,
                         const QByteArray &standardInput = QByteArray());
    // The same with `standardInput` written to the process's standard input (a pipe) first.
    CliRun runWithInput(const QStringList &arguments, const QByteArray &standardInput,
                        const QHash<QString, QString> &environment = QHash<QString, QString>());

    // A device made in-process with a cheap PIN hash, for tests that are not about keygen.
    void provision(const QString &device, unsigned maxRetries = 6);
    QByteArray storedCertificate(const QString &device) const;

    QString root() const { return m_root.path(); }
    // The configuration file zthost reads unless --config names another.
    QString configurationFile() const { return m_config.filePath(QStringLiteral("zthost/zthost.conf")); }
    // A path in the test's own work folder.
    QString workFile(const QString &name) const { return m_work.filePath(name); }
    void writeWorkFile(const QString &name, const QByteArray &bytes) const;
    QByteArray readWorkFile(const QString &name) const;

private:
    CliRun runProgram(const QString &program, const QStringList &arguments,
                      const QHash<QString, QString> &environment, const QByteArray &standardInput);

    SoftKeyRoot m_root;
    QTemporaryDir m_temp;
    QTemporaryDir m_work;
    QTemporaryDir m_config;
};

// The fixed messages the plug-in answers from WebGetLastErrorMsg.
namespace ZtMessages {
inline const QString kNoKeyDevice = QStringLiteral("未检测到电子密钥盘");
inline const QString kWrongPin = QStringLiteral("您输入的电子钥匙盘密码错误，请重新输入!");
inline const QString kEnvelopeUnreadable = QStringLiteral("数字信封解析失败");
} // namespace ZtMessages
