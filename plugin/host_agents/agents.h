#pragma once

#include "q_dispatch.h"

#include <plugin_host/component_ids.h>

#include <QByteArray>
#include <QString>
#include <QStringList>

// Agents: one Q_Dispatch subclass per kind of host component, so that the calling code names
// what it talks to. None owns its target: components, key objects and the core are the host's.
//
// Every member is one call of the host method of the same name, with the host's own parameter
// and result types: the dispatcher checks none of them, so they are written once, here and in
// asn_agents.h, and the rest of the library calls members only. A result starts at its failure
// value (false, zero, empty, null), so a call that cannot be made (no target, no such method)
// reads as a refusal. Handles, identifiers and lengths are qulonglong on both sides.

// Intermediate base of the agents of the signature-manager and key components.
class Q_ComponentLib : public Q_Dispatch
{
public:
    explicit Q_ComponentLib(QObject *parent = nullptr);
    virtual ~Q_ComponentLib();
};

// Asks the core for a component, for the agents that create their own target. Null when the
// core has none (or there is no core yet); the agent then stays unbound, every dispatch through
// it returns at once, and "createComponentObject = <classId>  fail" goes to standard output,
// with no line end, as the host's console expects it.
QObject *createComponentOrReport(const QString &progId, const QString &classId);

// The host's signature manager.
class ZtSignatureManagerAgent : public Q_ComponentLib
{
public:
    explicit ZtSignatureManagerAgent(QObject *parent = nullptr);
    virtual ~ZtSignatureManagerAgent();

    // The host's key component, or null. The library parents its key agents to it.
    QObject *getZtKey()
    {
        QObject *keyManager = nullptr;
        invokeHelper(QStringLiteral("getZtKey"), &keyManager);
        return keyManager;
    }
};

// The host's key (device) component.
class ZtKeyAgent : public Q_ComponentLib
{
public:
    explicit ZtKeyAgent(QObject *parent = nullptr);
    virtual ~ZtKeyAgent();

    // How many key devices are attached; 0 on failure.
    int count()
    {
        int keys = 0;
        invokeHelper(QStringLiteral("count"), &keys);
        return keys;
    }
    // Key device `index` opened, or null. The key object is the host's.
    QObject *open(int index)
    {
        QObject *keyObject = nullptr;
        invokeHelper(QStringLiteral("open"), &keyObject, &index);
        return keyObject;
    }
};

// One opened key device, as the key component's "open" returned it. No parent.
class KeyObjectAgent : public Q_Dispatch
{
public:
    explicit KeyObjectAgent(QObject *target);
    virtual ~KeyObjectAgent();

    // The container names; empty on failure.
    QStringList enumContainer()
    {
        QStringList names;
        invokeHelper(QStringLiteral("enumContainer"), &names);
        return names;
    }
    // The container's handle, or 0.
    qulonglong openContainer(QString name)
    {
        qulonglong container = 0;
        invokeHelper(QStringLiteral("openContainer"), &container, &name);
        return container;
    }
    // 1 RSA, 2 SM2; 0 for an empty container and on failure.
    int getContainerType(qulonglong container)
    {
        int type = 0;
        invokeHelper(QStringLiteral("getContainerType"), &type, &container);
        return type;
    }
    void closeContainer(qulonglong container)
    {
        invokeHelper(QStringLiteral("closeContainer"), nullptr, &container);
    }
    // The signing (true) or encryption (false) certificate in DER; empty on failure.
    QByteArray exportCertificate(qulonglong container, bool signFlag)
    {
        QByteArray certificate;
        invokeHelper(QStringLiteral("exportCertificate"), &certificate, &container, &signFlag);
        return certificate;
    }
    // False unless the device accepts the PIN: the administrator's (true) or the user's.
    bool verifyPin(QString pin, bool adminPin)
    {
        bool verified = false;
        invokeHelper(QStringLiteral("verifyPin"), &verified, &pin, &adminPin);
        return verified;
    }
    void close() { invokeHelper(QStringLiteral("close"), nullptr); }
    // The handle of the session key unwrapped from the first blobLength bytes of blob, or 0.
    qulonglong importSessionKey(qulonglong container, qulonglong algId, QByteArray blob,
                                qulonglong blobLength)
    {
        qulonglong sessionKey = 0;
        invokeHelper(QStringLiteral("importSessionKey"), &sessionKey, &container, &algId, &blob,
                     &blobLength);
        return sessionKey;
    }
    // `param` is the block-cipher record; false when the device refuses the key or the record.
    bool decryptInit(qulonglong key, QByteArray param)
    {
        bool initialised = false;
        invokeHelper(QStringLiteral("decryptInit"), &initialised, &key, &param);
        return initialised;
    }
    // The plaintext of the first len bytes of data; empty on failure (and for no plaintext).
    QByteArray decrypt(qulonglong key, QByteArray data, qulonglong len)
    {
        QByteArray plaintext;
        invokeHelper(QStringLiteral("decrypt"), &plaintext, &key, &data, &len);
        return plaintext;
    }
};

// The host's certificate parser. A new component per agent.
class ZtCertificateAgent : public Q_Dispatch
{
public:
    explicit ZtCertificateAgent(QObject *parent = nullptr);
    virtual ~ZtCertificateAgent();

    // False when the component refuses the certificate; it then holds none.
    bool open(QByteArray certificate)
    {
        bool opened = false;
        invokeHelper(QStringLiteral("open"), &opened, &certificate);
        return opened;
    }
    // The held certificate's public point, X then Y; empty on failure.
    QByteArray getPublicKeyData()
    {
        QByteArray keyData;
        invokeHelper(QStringLiteral("getPublicKeyData"), &keyData);
        return keyData;
    }
};

// The host core handed to ComponentInit; forwards the library's trace to the host's logger.
class ZtSignatureCoreAgent : public Q_Dispatch
{
public:
    explicit ZtSignatureCoreAgent(QObject *core);
    virtual ~ZtSignatureCoreAgent();

    // The component the core makes for that ProgID and class identifier, or null.
    QObject *createComponentObject(QString progId, QString classId);
    void logDebug(QString message);
    void logError(QString message);
};
