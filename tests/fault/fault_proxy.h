#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>

#include <memory>
#include <vector>

// Fault injection at the border between the plug-in and its host. Every host object the
// plug-in reaches (the core, and every object a host method answers) is a FaultProxy: it shows
// the plug-in its target's own meta-object and forwards each call to the target, so the road is
// the real one. A FaultPlan counts the calls and makes the k-th one fail in one of the ways a
// host can fail:
// - FailureValue: the method answers the empty value of its type without running: a null
//   object, false, a zero handle, empty bytes or an empty list; a void method does nothing.
// - MethodMissing: the object has no such method.
// - TypeRefused: the object's method of that name takes a parameter type the plug-in's
//   dispatcher does not pass.
//
// The plug-in finds a method by asking the target for its meta-object once per call; that
// question is what the plan counts.
class FaultPlan
{
public:
    enum class Way { FailureValue, MethodMissing, TypeRefused };

    // Counting starts again from zero; the k-th call from now (from 1) fails in `way`.
    void arm(int k, Way way);
    // Counting starts again from zero and no call fails.
    void countOnly();
    // No counting and no faults: for setting a host up.
    void disarm();

    int calls() const { return m_calls; }
    bool fired() const { return m_fired; }

    // One more call; the way it fails, or null when it goes through.
    const Way *nextCall();

private:
    bool m_counting = false;
    int m_calls = 0;
    int m_failAt = 0;
    Way m_way = Way::FailureValue;
    bool m_fired = false;
};

class FaultProxyArena;

class FaultProxy : public QObject
{
public:
    FaultProxy(QObject *target, FaultProxyArena *arena);

    const QMetaObject *metaObject() const override;
    int qt_metacall(QMetaObject::Call call, int index, void **argv) override;

    QObject *target() const { return m_target; }

private:
    QPointer<QObject> m_target;
    FaultProxyArena *m_arena;
    // Set by metaObject() for the call that follows it.
    mutable bool m_answerEmpty = false;
};

// Owns the proxies of one host; one proxy per target object, made on first sight.
class FaultProxyArena
{
public:
    explicit FaultProxyArena(FaultPlan &plan) : m_plan(plan) {}
    ~FaultProxyArena();

    QObject *proxyFor(QObject *target);
    FaultPlan &plan() { return m_plan; }

private:
    FaultPlan &m_plan;
    QHash<QObject *, QPointer<FaultProxy>> m_proxies;
    std::vector<std::unique_ptr<FaultProxy>> m_owned;
};
