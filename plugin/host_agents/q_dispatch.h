#pragma once

#include <QDir>
#include <QObject>
#include <QString>

#include <cstdarg>

// Calls methods of a host object by name through the Qt meta-object system.
//
// Every argument travels by address: after `result` the caller passes exactly one pointer per
// declared parameter of the host method, each pointing at a value of that parameter's type, and
// `result` points at a variable of the method's return type (or is null). The dispatcher checks
// none of that. A call that cannot be made (no target, no such method, a parameter type it does
// not pass) leaves `*result` untouched, so callers set it to its failure value beforehand.
//
// The target is not owned and is not watched: dispatching after the host deleted it is the
// caller's error. Every step is traced to the core log, "penwick_core.log" in the folder
// "ardlow" under the temporary directory, but only while that folder exists.
class Q_Dispatch : public QObject
{
public:
    Q_Dispatch(QObject *target, QObject *parent);
    virtual ~Q_Dispatch();

    void invokeHelper(QString methodName, void *result, ...);
    void invokeHelperV(QString methodName, void *result, va_list args);
    void Corelog(QString message);

    QObject *target() const { return m_target; }

protected:
    // Agents that create their host component through the core bind it right after construction.
    void setTarget(QObject *target) { m_target = target; }

private:
    QDir m_logDir;
    QObject *m_target;
};
