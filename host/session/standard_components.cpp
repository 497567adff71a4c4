#include "session/standard_components.h"

#include "asn/asn_document.h"
#include "certificate/certificate_component.h"
#include <plugin_host/component_ids.h>
#include "core/host_core.h"
#include "core/signature_manager.h"
#include "session/default_paths.h"
#include "key/key_component.h"

namespace zthost {

void registerStandardComponents(HostCore &core, const StandardComponentOptions &options)
{
    using namespace ZtComponentIds;
    HostCore *host = &core;
    core.registerComponent(QLatin1String(kSignatureManagerProgId),
                           QLatin1String(kSignatureManagerClassId), HostCore::Lifetime::Shared,
                           [host] { return new SignatureManager(host); });

    // The driver is loaded when the plug-in first asks for the key component, not before: a
    // host that never opens a key never touches a driver.
    const QString driverPath
        = options.skfDriverPath.isEmpty() ? defaultSkfDriverPath() : options.skfDriverPath;
    const std::shared_ptr<DriverAnswers> answers = options.driverAnswers;
    const QString deviceName = options.deviceName;
    const DriverProfile profile = options.driverProfile;
    core.registerComponent(
        QLatin1String(kKeyProgId), QLatin1String(kKeyClassId), HostCore::Lifetime::Shared,
        [host, driverPath, profile, answers, deviceName] {
            auto *key = new KeyComponent(driverPath, profile, host->log(), answers);
            key->setDeviceChoice(deviceName);
            return key;
        });

    core.registerComponent(QLatin1String(kCertificateProgId), QString(),
                           HostCore::Lifetime::PerOperation,
                           [] { return new CertificateComponent; });
    core.registerComponent(QLatin1String(kAsnProgId), QString(), HostCore::Lifetime::PerOperation,
                           [] { return new AsnDocument; });
}

} // namespace zthost
