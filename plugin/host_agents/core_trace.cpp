#include "core_trace.h"

#include "agents.h"
#include "signature_core.h"

namespace {
QString traceLine(const char *method, int tag, const QString &message)
{
    const QString location = QStringLiteral("%1:%2").arg(QLatin1String(method)).arg(tag);
    // Both fields in one arg() call: a "%1" inside the message stays as written.
    return QStringLiteral("[%1]%2").arg(location, message);
}
} // namespace

void coreTraceDebug(const char *method, int tag, const QString &message)
{
    if (ZtSignatureCoreAgent *core = getSignatureCore())
        core->logDebug(traceLine(method, tag, message));
}

void coreTraceError(const char *method, int tag, const QString &message)
{
    if (ZtSignatureCoreAgent *core = getSignatureCore())
        core->logError(traceLine(method, tag, message));
}
