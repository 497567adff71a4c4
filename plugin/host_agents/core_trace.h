#pragma once

#include <QString>

// The progress channel to the host: "[<method>:<tag>]<message>" sent to the core's "logDebug"
// or "logError". The message carries its own blanks. Nothing happens when there is no core.
// The tag is the documented line tag of the trace where the host's log readers know one, the
// source line otherwise (see ZT_TRACE_DEBUG).
void coreTraceDebug(const char *method, int tag, const QString &message);
void coreTraceError(const char *method, int tag, const QString &message);

#define ZT_TRACE_DEBUG(method, message) coreTraceDebug(method, __LINE__, message)
#define ZT_TRACE_ERROR(method, message) coreTraceError(method, __LINE__, message)
