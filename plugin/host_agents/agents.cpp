#include "agents.h"

#include "signature_core.h"

#include <cstdio>

QObject *createComponentOrReport(const QString &progId, const QString &classId)
{
    QObject *component = createComponentObject(progId, classId);
    if (!component)
        std::printf("createComponentObject = %s  fail", classId.toUtf8().constData());
    return component;
}

Q_ComponentLib::Q_ComponentLib(QObject *parent) : Q_Dispatch(nullptr, parent) {}
Q_ComponentLib::~Q_ComponentLib() = default;

ZtSignatureManagerAgent::ZtSignatureManagerAgent(QObject *parent) : Q_ComponentLib(parent)
{
    setTarget(createComponentOrReport(QLatin1String(ZtComponentIds::kSignatureManagerProgId),
                                      QLatin1String(ZtComponentIds::kSignatureManagerClassId)));
}
ZtSignatureManagerAgent::~ZtSignatureManagerAgent() = default;

ZtKeyAgent::ZtKeyAgent(QObject *parent) : Q_ComponentLib(parent)
{
    setTarget(createComponentOrReport(QLatin1String(ZtComponentIds::kKeyProgId),
                                      QLatin1String(ZtComponentIds::kKeyClassId)));
}
ZtKeyAgent::~ZtKeyAgent() = default;

KeyObjectAgent::KeyObjectAgent(QObject *target) : Q_Dispatch(target, nullptr) {}
KeyObjectAgent::~KeyObjectAgent() = default;

ZtCertificateAgent::ZtCertificateAgent(QObject *parent) : Q_Dispatch(nullptr, parent)
{
    setTarget(createComponentOrReport(QLatin1String(ZtComponentIds::kCertificateProgId),
                                      QLatin1String(ZtComponentIds::kCertificateClassId)));
}
ZtCertificateAgent::~ZtCertificateAgent() = default;

ZtSignatureCoreAgent::ZtSignatureCoreAgent(QObject *core) : Q_Dispatch(core, nullptr) {}
ZtSignatureCoreAgent::~ZtSignatureCoreAgent() = default;

QObject *ZtSignatureCoreAgent::createComponentObject(QString progId, QString classId)
{
    QObject *component = nullptr;
    invokeHelper(QStringLiteral("createComponentObject"), &component, &progId, &classId);
    return component;
}

void ZtSignatureCoreAgent::logDebug(QString message)
{
    invokeHelper(QStringLiteral("logDebug"), nullptr, &message);
}

void ZtSignatureCoreAgent::logError(QString message)
{
    invokeHelper(QStringLiteral("logError"), nullptr, &message);
}
