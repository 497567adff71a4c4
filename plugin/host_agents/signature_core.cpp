#include "signature_core.h"

#include "agents.h"

ZtSignatureCoreAgent *s_coreagent = nullptr;

QObject *createComponentObject(QString progId, QString classId)
{
    if (!s_coreagent)
        return nullptr;
    QObject *component = nullptr;
    s_coreagent->invokeHelper(QStringLiteral("createComponentObject"), &component, &progId,
                              &classId);
    return component;
}

ZtSignatureCoreAgent *getSignatureCore()
{
    return s_coreagent;
}
