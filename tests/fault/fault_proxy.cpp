#include "fault_proxy.h"

#include "refusing_vocabulary.h"

#include <QByteArray>
#include <QMetaMethod>
#include <QMetaType>
#include <QStringList>

void FaultPlan::arm(int k, Way way)
{
    m_counting = true;
    m_calls = 0;
    m_failAt = k;
    m_way = way;
    m_fired = false;
}

void FaultPlan::countOnly()
{
    arm(0, Way::FailureValue);
}

void FaultPlan::disarm()
{
    m_counting = false;
    m_failAt = 0;
}

const FaultPlan::Way *FaultPlan::nextCall()
{
    if (!m_counting)
        return nullptr;
    if (++m_calls != m_failAt)
        return nullptr;
    m_fired = true;
    return &m_way;
}

FaultProxy::FaultProxy(QObject *target, FaultProxyArena *arena)
    : m_target(target), m_arena(arena)
{
}

const QMetaObject *FaultProxy::metaObject() const
{
    m_answerEmpty = false;
    if (!m_target)
        return &QObject::staticMetaObject;
    if (const FaultPlan::Way *way = m_arena->plan().nextCall()) {
        switch (*way) {
        case FaultPlan::Way::MethodMissing:
            return &QObject::staticMetaObject;
        case FaultPlan::Way::TypeRefused:
            return &RefusingVocabulary::staticMetaObject;
        case FaultPlan::Way::FailureValue:
            m_answerEmpty = true;
            break;
        }
    }
    return m_target->metaObject();
}

namespace {
// Writes the empty value of the method's return type; the plug-in set its result variable to
// that value too, but a host that answers it must be told apart from one that never ran.
void answerEmpty(const QMetaMethod &method, void *result)
{
    if (!result)
        return;
    switch (method.returnType()) {
    case QMetaType::Bool:
        *static_cast<bool *>(result) = false;
        break;
    case QMetaType::Int:
        *static_cast<int *>(result) = 0;
        break;
    case QMetaType::ULongLong:
        *static_cast<qulonglong *>(result) = 0;
        break;
    case QMetaType::QObjectStar:
        *static_cast<QObject **>(result) = nullptr;
        break;
    case QMetaType::QByteArray:
        *static_cast<QByteArray *>(result) = QByteArray();
        break;
    case QMetaType::QStringList:
        *static_cast<QStringList *>(result) = QStringList();
        break;
    case QMetaType::QString:
        *static_cast<QString *>(result) = QString();
        break;
    default:
        break;
    }
}
} // namespace

int FaultProxy::qt_metacall(QMetaObject::Call call, int index, void **argv)
{
    if (call != QMetaObject::InvokeMetaMethod || !m_target)
        return QObject::qt_metacall(call, index, argv);
    const QMetaMethod method = m_target->metaObject()->method(index);
    if (m_answerEmpty) {
        m_answerEmpty = false;
        answerEmpty(method, argv[0]);
        return -1;
    }
    QMetaObject::metacall(m_target, call, index, argv);
    // Objects handed out by the host are reached through proxies too.
    if (method.returnType() == QMetaType::QObjectStar && argv[0]) {
        QObject **answer = static_cast<QObject **>(argv[0]);
        *answer = m_arena->proxyFor(*answer);
    }
    return -1;
}

FaultProxyArena::~FaultProxyArena() = default;

QObject *FaultProxyArena::proxyFor(QObject *target)
{
    if (!target)
        return nullptr;
    QPointer<FaultProxy> &proxy = m_proxies[target];
    // A target deleted by the host may leave its address to a new object.
    if (!proxy || proxy->target() != target) {
        m_owned.push_back(std::make_unique<FaultProxy>(target, this));
        proxy = m_owned.back().get();
    }
    return proxy;
}
