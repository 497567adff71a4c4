#pragma once

#include "q_dispatch.h"

#include <plugin_host/component_ids.h>

#include <QString>

// Agents: one Q_Dispatch subclass per kind of host component, so that the calling code names
// what it talks to. None owns its target: components, key objects and the core are the host's.

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

// The host's signature manager: "getZtKey".
class ZtSignatureManagerAgent : public Q_ComponentLib
{
public:
    explicit ZtSignatureManagerAgent(QObject *parent = nullptr);
    virtual ~ZtSignatureManagerAgent();
};

// The host's key (device) component: "count", "open".
class ZtKeyAgent : public Q_ComponentLib
{
public:
    explicit ZtKeyAgent(QObject *parent = nullptr);
    virtual ~ZtKeyAgent();
};

// One opened key device, as the key component's "open" returned it. No parent.
class KeyObjectAgent : public Q_Dispatch
{
public:
    explicit KeyObjectAgent(QObject *target);
    virtual ~KeyObjectAgent();
};

// The host's certificate parser: "open", "getPublicKeyData". A new component per agent.
class ZtCertificateAgent : public Q_Dispatch
{
public:
    explicit ZtCertificateAgent(QObject *parent = nullptr);
    virtual ~ZtCertificateAgent();
};

// The host core handed to ComponentInit; forwards the library's trace to the host's logger.
class ZtSignatureCoreAgent : public Q_Dispatch
{
public:
    explicit ZtSignatureCoreAgent(QObject *core);
    virtual ~ZtSignatureCoreAgent();

    void logDebug(QString message);
    void logError(QString message);
};
