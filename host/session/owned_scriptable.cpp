#include "session/owned_scriptable.h"

#include "core/host_core.h"
#include "core/plugin_loader.h"

namespace zthost {

OwnedScriptable::OwnedScriptable(QObject *object, HostCore &core, PluginLoader &loader)
    : m_calls(object), m_core(core), m_loader(loader)
{
}

OwnedScriptable::~OwnedScriptable()
{
    // Null once the loader's shutdown deleted it first; then there is nothing left to do.
    if (QObject *object = m_calls.target())
        m_loader.destroyComponent(object);
    m_core.reclaim();
}

Invocation OwnedScriptable::invoke(const QString &method, const QVariantList &arguments)
{
    Invocation invocation = m_calls.invoke(method, arguments);
    m_core.reclaim();
    return invocation;
}

} // namespace zthost
