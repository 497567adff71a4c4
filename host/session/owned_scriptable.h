#pragma once

#include "session/scriptable_calls.h"

namespace zthost {

class HostCore;
class PluginLoader;

// One more scriptable object of a host session's plug-in, owned by whoever holds this: its calls
// reclaim the per-operation components as the session's own do, and deleting this deletes the
// object through the loader that made it. Must not outlive the session's core and loader.
class OwnedScriptable : public ScriptableCalls
{
public:
    OwnedScriptable(QObject *object, HostCore &core, PluginLoader &loader);
    ~OwnedScriptable() override;
    OwnedScriptable(const OwnedScriptable &) = delete;
    OwnedScriptable &operator=(const OwnedScriptable &) = delete;

    Invocation invoke(const QString &method, const QVariantList &arguments) override;

private:
    ObjectCalls m_calls;
    HostCore &m_core;
    PluginLoader &m_loader;
};

} // namespace zthost
