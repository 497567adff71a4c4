#include "key_host.h"

KeyHost::KeyHost() : m_installed(&core)
{
    signatureManager.keyManager = &keyManager;
    keyComponent.keys = {&key};
    key.containers = {ScriptedKeyObject::sm2(QStringLiteral("enc"), kSm2Handle,
                                             encryptionCertificate)};
    core.provideShared(QStringLiteral("ZTSIGNATUREMANAGER.ZtSignatureManager.1"),
                       &signatureManager);
    core.provideShared(QStringLiteral("ZTKEY.ZtKey.1"), &keyComponent);
}

// The key agents the library parented to keyManager go with it; ComponentDestroy runs first.
KeyHost::~KeyHost() = default;

QStringList KeyHost::hostCalls() const
{
    QStringList calls;
    for (int i = 0; i < signatureManager.getZtKeyCalls; ++i)
        calls << QStringLiteral("getZtKey()");
    for (int i = 0; i < keyComponent.countCalls; ++i)
        calls << QStringLiteral("count()");
    for (int index : keyComponent.openedIndices)
        calls << QStringLiteral("open(%1)").arg(index);
    return calls + key.calls;
}

void KeyHost::clearRecords()
{
    core.clearRecords();
    signatureManager.getZtKeyCalls = 0;
    keyComponent.countCalls = 0;
    keyComponent.openedIndices.clear();
    key.calls.clear();
}
