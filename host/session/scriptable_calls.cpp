#include "session/scriptable_calls.h"

#include "session/scriptable_method.h"

namespace zthost {

Invocation ObjectCalls::invoke(const QString &method, const QVariantList &arguments)
{
    Invocation invocation;
    if (!m_target) {
        invocation.error = QStringLiteral("the scriptable object is gone");
        return invocation;
    }
    const QMetaMethod target = findInvokable(m_target, method);
    if (!target.isValid()) {
        invocation.error = QStringLiteral("the scriptable object has no method %1").arg(method);
        return invocation;
    }
    invocation.called = zthost::invoke(m_target, target, arguments, &invocation.value,
                                       &invocation.error);
    return invocation;
}

} // namespace zthost
