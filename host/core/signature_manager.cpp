#include "core/signature_manager.h"

#include <plugin_host/component_ids.h>
#include "core/host_core.h"

namespace zthost {

SignatureManager::SignatureManager(HostCore *core, QObject *parent) : QObject(parent), m_core(core)
{}

QObject *SignatureManager::getZtKey()
{
    return m_core->createComponentObject(QLatin1String(ZtComponentIds::kKeyProgId),
                                         QLatin1String(ZtComponentIds::kKeyClassId));
}

} // namespace zthost
