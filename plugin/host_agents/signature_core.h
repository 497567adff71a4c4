#pragma once

#include "zt_export.h"

#include <QObject>
#include <QString>

class ZtSignatureCoreAgent;

// The one core agent: set by ComponentInit, deleted and cleared by ComponentDestroy.
// Null before the first ComponentInit and after ComponentDestroy.
extern ZT_EXPORT ZtSignatureCoreAgent *s_coreagent;

// Creates a host component through the core's "createComponentObject". The component belongs
// to the host core and is never deleted by the library. Null when there is no core yet, when
// the core refuses or does not know the component, or when the call could not be made.
ZT_EXPORT QObject *createComponentObject(QString progId, QString classId);

// The core agent as it stands (may be null). Callers that log through it check for null first.
ZT_EXPORT ZtSignatureCoreAgent *getSignatureCore();
