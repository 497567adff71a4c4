#include "fake_key_host.h"

QObject *FakeSignatureManager::getZtKey()
{
    ++getZtKeyCalls;
    return keyManager;
}

int FakeKeyComponent::count()
{
    ++countCalls;
    return keys.size();
}

QObject *FakeKeyComponent::open(int index)
{
    openedIndices.append(index);
    return index >= 0 && index < keys.size() ? keys.at(index) : nullptr;
}

ScriptedKeyObject::Container ScriptedKeyObject::sm2(const QString &name, qulonglong handle,
                                                    const QByteArray &encCert)
{
    Container container;
    container.name = name;
    container.handle = handle;
    container.type = 2;
    container.encryptionCertificate = encCert;
    return container;
}

const ScriptedKeyObject::Container *ScriptedKeyObject::byHandle(qulonglong handle) const
{
    for (const Container &container : containers) {
        if (container.handle != 0 && container.handle == handle)
            return &container;
    }
    return nullptr;
}

QStringList ScriptedKeyObject::enumContainer()
{
    calls.append(QStringLiteral("enumContainer()"));
    QStringList names;
    for (const Container &container : containers)
        names.append(container.name);
    return names;
}

qulonglong ScriptedKeyObject::openContainer(QString name)
{
    calls.append(QStringLiteral("openContainer(%1)").arg(name));
    for (const Container &container : containers) {
        if (container.name == name) {
            if (container.handle)
                openHandles.append(container.handle);
            return container.handle;
        }
    }
    return 0;
}

int ScriptedKeyObject::getContainerType(qulonglong container)
{
    calls.append(QStringLiteral("getContainerType(%1)").arg(container));
    const Container *found = byHandle(container);
    return found ? found->type : 0;
}

void ScriptedKeyObject::closeContainer(qulonglong container)
{
    calls.append(QStringLiteral("closeContainer(%1)").arg(container));
    openHandles.removeOne(container);
}

QByteArray ScriptedKeyObject::exportCertificate(qulonglong container, bool signFlag)
{
    calls.append(QStringLiteral("exportCertificate(%1,%2)")
                     .arg(container)
                     .arg(signFlag ? QStringLiteral("true") : QStringLiteral("false")));
    const Container *found = byHandle(container);
    if (!found)
        return QByteArray();
    return signFlag ? found->signatureCertificate : found->encryptionCertificate;
}

bool ScriptedKeyObject::verifyPin(QString pin, bool adminPin)
{
    calls.append(QStringLiteral("verifyPin(%1,%2)")
                     .arg(pin, adminPin ? QStringLiteral("true") : QStringLiteral("false")));
    return !adminPin && pin == userPin;
}

void ScriptedKeyObject::close()
{
    calls.append(QStringLiteral("close()"));
}

qulonglong ScriptedKeyObject::importSessionKey(qulonglong container, qulonglong algId,
                                               QByteArray blob, qulonglong blobLen)
{
    calls.append(QStringLiteral("importSessionKey(%1,0x%2,%3,%4)")
                     .arg(container)
                     .arg(algId, 0, 16)
                     .arg(QString::fromLatin1(blob.toHex()))
                     .arg(blobLen));
    return sessionKeyHandle;
}

bool ScriptedKeyObject::decryptInit(qulonglong key, QByteArray param)
{
    calls.append(QStringLiteral("decryptInit(%1,%2)").arg(key).arg(QString::fromLatin1(param.toHex())));
    return decryptInitAnswer;
}

QByteArray ScriptedKeyObject::decrypt(qulonglong key, QByteArray data, qulonglong len)
{
    calls.append(QStringLiteral("decrypt(%1,%2,%3)")
                     .arg(key)
                     .arg(QString::fromLatin1(data.toHex()))
                     .arg(len));
    return plaintext;
}

bool FakeCertificateComponent::open(QByteArray certificate)
{
    calls.append(QStringLiteral("open(%1)").arg(QString::fromLatin1(certificate.toHex())));
    return acceptAnything || (!accepts.isEmpty() && certificate == accepts);
}

QByteArray FakeCertificateComponent::getPublicKeyData()
{
    calls.append(QStringLiteral("getPublicKeyData()"));
    return publicKey;
}
