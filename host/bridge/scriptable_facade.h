#pragma once

#include <plugin_host/scriptable_methods.h>

#include <QObject>
#include <QString>
#include <QStringList>

namespace zthost {
class ScriptableCalls;
struct Invocation;
} // namespace zthost

namespace zthost::bridge {

// What the web channel publishes in place of the plug-in's scriptable object: the same seven
// invokable methods, each forwarded by name to the host session (ScriptableCalls), which calls
// the scriptable object on the calling thread and reclaims what the call left behind.
// Publishing the scriptable object itself would also publish what every QObject has (a
// writable objectName, deleteLater); a page must not rename or delete the host's object. This
// class has those too, which is why the transport lets only the seven through (MessageGate).
//
// Failure values are the scriptable object's own: false, or the text "false". When the call
// cannot be made, the façade answers the same.
//
// Each page has a façade and a scriptable object of its own. The library's last-error code is
// process-wide, so the façade reads WebGetLastErrorMsg right after each of its page's failing
// calls (calls run one at a time, so nothing comes between) and answers the page's
// WebGetLastErrorMsg from that text, without calling the library: "" before any failure.
class ScriptableFacade : public QObject
{
    Q_OBJECT

public:
    // `calls` is not owned and must outlive the façade.
    explicit ScriptableFacade(ScriptableCalls &calls, QObject *parent = nullptr);

    // The seven method names, in declaration order.
    static const QStringList &methodNames();

    ZT_SCRIPTABLE_METHODS

private:
    bool callBool(const QString &method, const QVariantList &arguments = {});
    // Keeps the page's last failure message when `invocation` failed.
    void noteFailure(const Invocation &invocation);
    QString callString(const QString &method, const QVariantList &arguments,
                       const QString &failure);

    ScriptableCalls &m_calls;
    QString m_lastError;
};

} // namespace zthost::bridge
