#pragma once

#include "host_options.h"

#include "core/host_core.h"
#include "core/plugin_loader.h"

#include <QString>
#include <QVariant>
#include <QVariantList>

#include <memory>

namespace zthost::cli {

// One answer of the scriptable object.
struct Answer
{
    bool succeeded = false;
    QVariant value;
    // When !succeeded: "WebVerifyPin answered false: <WebGetLastErrorMsg>", or why the call
    // could not be made. Never contains the arguments, which may be a PIN.
    QString failure;

    QString text() const;
};

// The host as the command runs it: the real HostCore with the standard components over the
// chosen smart-key driver, the plug-in loaded by path and initialised with that core, and one
// scriptable object. Per-operation components are reclaimed after every call, so a long session
// does not grow.
class HostSession
{
public:
    // Null with `error` set when the host log cannot be opened or the plug-in cannot be loaded
    // or initialised; the error names the path.
    static std::unique_ptr<HostSession> start(const HostOptions &options, QString *error);

    // The plug-in's objects and core agent first, then the core, the order the plug-in expects.
    ~HostSession();
    HostSession(const HostSession &) = delete;
    HostSession &operator=(const HostSession &) = delete;

    QObject *scriptable() const { return m_scriptable; }
    HostCore &core() { return *m_core; }
    const QString &pluginPath() const { return m_pluginPath; }

    // Calls `method` with arguments already of its parameter types. A failure answer (false or
    // "false") is not succeeded; its failure text carries WebGetLastErrorMsg.
    Answer call(const QString &method, const QVariantList &arguments = QVariantList());

    // WebGetLastErrorMsg, or a note when even that cannot be called.
    QString lastErrorMessage();

private:
    HostSession() = default;

    std::unique_ptr<HostCore> m_core;
    std::unique_ptr<PluginLoader> m_plugin;
    QObject *m_scriptable = nullptr;
    QString m_pluginPath;
};

} // namespace zthost::cli
