#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariant>
#include <QVariantList>

namespace zthost {

// One call of a scriptable object's method by name, as Qt made it.
struct Invocation
{
    // False when the call could not be made: no such method, arguments that do not fit, the
    // object gone. `error` says which.
    bool called = false;
    // The method's return value; invalid for a void method and when !called.
    QVariant value;
    QString error;
};

// Whoever holds a scriptable object and lets others call it by name. The host session is the
// one that holds the plug-in's; a web page reaches it only through this.
class ScriptableCalls
{
public:
    virtual ~ScriptableCalls() = default;

    // Calls `method` with `arguments`, each converted to its parameter's type where Qt can.
    virtual Invocation invoke(const QString &method, const QVariantList &arguments) = 0;
};

// Calls an object's invokable methods by name and does nothing around them. The host session
// calls its scriptable object through one; tests put one in front of a stand-in.
class ObjectCalls : public ScriptableCalls
{
public:
    // `target` is not owned; once it is gone every call answers not called.
    explicit ObjectCalls(QObject *target) : m_target(target) {}

    Invocation invoke(const QString &method, const QVariantList &arguments) override;

    QObject *target() const { return m_target; }

private:
    QPointer<QObject> m_target;
};

} // namespace zthost
