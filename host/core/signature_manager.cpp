#include "core/signature_manager.h"

#include "core/component_ids.h"
#include "core/host_core.h"

namespace zthost {

SignatureManager::SignatureManager(HostCore *core, QObject *parent) : QObject(parent), m_core(core)
{}

QObject *SignatureManager::getZtKey()
{
    return m_core->createComponentObject(QLatin1String(ComponentIds::kKeyProgId),
                                         QLatin1String(ComponentIds::kKeyClassId));
}

} // namespace zthost
