#pragma once

#include "core/host_core.h"
#include "session/scriptable_calls.h"
#include "session/scriptable_source.h"
#include "session/session_options.h"

#include <QString>
#include <QVariant>
#include <QVariantList>

#include <memory>

namespace zthost {

class DriverAnswers;
class KeyComponent;
class PluginLoader;

// A call of the scriptable object with the library's failure value explained.
struct Answer
{
    bool succeeded = false;
    QVariant value;
    // When !succeeded: "WebVerifyPin answered false: <WebGetLastErrorMsg>", or why the call
    // could not be made. Never contains the arguments, which may be a PIN.
    QString failure;

    // The value as text: true/false, the text itself, numbers in decimal.
    QString text() const;
};

// The one road into the plug-in: the reference host core with the standard components over the
// chosen smart-key driver, the plug-in loaded by path and initialised with that core, and one
// scriptable object. The command line, the web bridge, the benchmarks, the fuzzers and the
// end-to-end tests all drive the plug-in through a session.
//
// Per-operation components are reclaimed after every call, so a long session does not grow.
// More scriptable objects (createScriptable) share the core and the plug-in; each is deleted
// with its holder, and any still alive with the session. Calling thread only.
class HostSession : public ScriptableCalls, public ScriptableSource
{
public:
    // Null with `error` set when the host log cannot be opened, or the plug-in cannot be loaded,
    // initialised or made to create its scriptable object; the error names the path.
    static std::unique_ptr<HostSession> start(const SessionOptions &options, QString *error);

    // The plug-in's objects first, then its core agent (ComponentDestroy), then the host core:
    // the order the plug-in expects.
    ~HostSession() override;
    HostSession(const HostSession &) = delete;
    HostSession &operator=(const HostSession &) = delete;

    // Calls `method` by name and reclaims the per-operation components after it. The failure
    // value (false, "false") comes back as it is; no other call is made.
    Invocation invoke(const QString &method, const QVariantList &arguments = {}) override;

    // A scriptable object of its own from CreateComponent; null with `error` set when the
    // plug-in makes none.
    std::unique_ptr<ScriptableCalls> createScriptable(QString *error) override;

    // invoke(), with a failure value explained by WebGetLastErrorMsg, called right after.
    // driverAnswers() then holds what the smart-key driver answered during this call alone.
    Answer call(const QString &method, const QVariantList &arguments = {});

    // What the key component's driver answered (key/driver_answers.h): during the last call()
    // for the failures and the device count; the driver's load error for the whole session.
    const DriverAnswers &driverAnswers() const { return *m_driverAnswers; }
    // The smart-key driver the key component loads.
    const QString &skfDriverPath() const { return m_skfDriverPath; }

    // WebGetLastErrorMsg, or a note when even that cannot be called.
    QString lastErrorMessage();

    // The scriptable object, for the callers that look at its meta-object (its method list).
    const QObject *scriptable() const { return m_calls.target(); }
    HostCore &core() { return *m_core; }
    // The key component the plug-in is handed (made now if the plug-in has not asked yet), for
    // hosts that say which device was used; null only if the core has none registered.
    KeyComponent *keyComponent();
    const QString &pluginPath() const { return m_pluginPath; }

private:
    HostSession();

    std::unique_ptr<HostCore> m_core;
    std::unique_ptr<PluginLoader> m_plugin;
    ObjectCalls m_calls{nullptr};
    QString m_pluginPath;
    QString m_skfDriverPath;
    std::shared_ptr<DriverAnswers> m_driverAnswers;
};

} // namespace zthost
