#include "signature_core.h"

#include "agents.h"

ZtSignatureCoreAgent *s_coreagent = nullptr;

QObject *createComponentObject(QString progId, QString classId)
{
    if (!s_coreagent)
        return nullptr;
    return s_coreagent->createComponentObject(progId, classId);
}

ZtSignatureCoreAgent *getSignatureCore()
{
    return s_coreagent;
}
