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
