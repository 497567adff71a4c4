#pragma once

#include "core/host_core.h"
#include "log_sandbox.h"
#include "session/host_session.h"
#include "soft_key_root.h"

#include <plugin_host/session_key_algorithm.h>

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// The whole road with nothing scripted: software key devices in a private root (SOFTSKF_ROOT,
// restored after), and a host session over the software driver of this build tree with the
// built plug-in loaded by path. The scriptable object is reached only by name, through the
// session.
class EndToEnd : public ::testing::Test
{
protected:
    static constexpr const char *kUserPin = "e2e-user-2468";
    static constexpr const char *kAdminPin = "e2e-admin-1357";
    static constexpr const char *kWrongPin = "e2e-wrong-9999";
    static constexpr const char *kContainer = "SM2Container";
    static constexpr qulonglong kSm4Ecb = ZtSessionKey::kAlgorithmId;

    void SetUp() override;
    void TearDown() override;

    void provision(const QString &device, unsigned maxRetries = 6);
    void unplug(const QString &device);
    QByteArray storedCertificate(const QString &device) const;

    // The plug-in, initialised with the host core, and one scriptable object. Done after the
    // devices are provisioned, as a host starts after the key is plugged in.
    void startHost();

    bool openKey();
    bool closeKey();
    bool verifyPin(const QString &pin);
    QString certificateData();
    QString decode(const QString &base64Envelope, qulonglong algorithm = kSm4Ecb);
    QString lastErrorMessage();

    // The fixed message of `code` from tests/data/error_messages.tsv.
    static QString messageOf(qulonglong code);

    QString hostLogText() const;
    zthost::HostCore &core() { return m_session->core(); }

private:
    LogSandbox m_logs{LogSandbox::CoreLog::Off};
    SoftKeyRoot m_root;
    QTemporaryDir m_hostLogDir;
    std::unique_ptr<zthost::HostSession> m_session;
};
