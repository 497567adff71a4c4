#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>

namespace zthost::bridge {

// What the web channel publishes in place of the plug-in's scriptable object: the same seven
// invokable methods, each forwarded by name to the scriptable object on the calling thread.
// Publishing the scriptable object itself would also publish what every QObject has (a
// writable objectName, deleteLater); a page must not rename or delete the host's object. This
// class has those too, which is why the transport lets only the seven through (MessageGate).
//
// Failure values are the scriptable object's own: false, or the text "false". When the
// scriptable object is gone, or Qt refuses the call, the façade answers the same.
class ScriptableFacade : public QObject
{
    Q_OBJECT

public:
    // `target` is not owned. `afterEachCall` runs once every call has returned, e.g. to
    // reclaim the host's per-operation components; it may be empty.
    ScriptableFacade(QObject *target, std::function<void()> afterEachCall,
                     QObject *parent = nullptr);

    // The seven method names, in declaration order.
    static const QStringList &methodNames();

    Q_INVOKABLE bool WebOpenKey();
    Q_INVOKABLE bool WebCloseKey();
    Q_INVOKABLE bool WebVerifyPin(QString pinCode);
    Q_INVOKABLE QString WebGetCertData(QString certtype);
    Q_INVOKABLE QString WebZtEncode(QString bas64SrcData, QString certData, quint64 ulAlgID);
    Q_INVOKABLE QString WebZtDecode(QString bas64EncData, quint64 ulAlgID);
    Q_INVOKABLE QString WebGetLastErrorMsg();

private:
    void afterCall();

    QPointer<QObject> m_target;
    std::function<void()> m_afterEachCall;
};

} // namespace zthost::bridge
