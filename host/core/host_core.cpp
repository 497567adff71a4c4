#include "core/host_core.h"


namespace zthost {

HostCore::HostCore(QObject *parent) : QObject(parent) {}

HostCore::~HostCore()
{
    // Later components may lean on earlier ones (the signature manager hands out the key
    // component), so they go in reverse order; all of them before the log they write to.
    for (auto it = m_sharedInOrder.rbegin(); it != m_sharedInOrder.rend(); ++it)
        delete *it;
    m_sharedInOrder.clear();
    // Per-operation components still outstanding go with m_perOperation; their pending
    // deferred deletes are dropped by Qt when they are destroyed.
}

void HostCore::registerComponent(const QString &progId, const QString &classId, Lifetime lifetime,
                                 Factory make)
{
    m_registrations.push_back({progId, classId, lifetime, std::move(make), nullptr});
}

HostCore::Registration *HostCore::find(const QString &progId, const QString &classId)
{
    // Newest first, so that a later registration replaces an earlier one.
    if (!progId.isEmpty()) {
        for (auto it = m_registrations.rbegin(); it != m_registrations.rend(); ++it) {
            if (it->progId == progId)
                return &*it;
        }
    }
    if (!classId.isEmpty()) {
        for (auto it = m_registrations.rbegin(); it != m_registrations.rend(); ++it) {
            if (it->classId.compare(classId, Qt::CaseInsensitive) == 0)
                return &*it;
        }
    }
    return nullptr;
}

QObject *HostCore::createComponentObject(QString progId, QString classId)
{
    if (m_requestWatcher)
        m_requestWatcher(progId);
    Registration *registration = find(progId, classId);
    if (!registration) {
        m_log.warning(QStringLiteral("no component for ProgID \"%1\" or class identifier \"%2\"")
                          .arg(progId, classId));
        return nullptr;
    }
    if (registration->lifetime == Lifetime::Shared && registration->shared)
        return registration->shared;

    QObject *component = registration->make ? registration->make() : nullptr;
    if (!component) {
        m_log.error(QStringLiteral("component \"%1\" could not be made")
                        .arg(registration->progId.isEmpty() ? registration->classId
                                                            : registration->progId));
        return nullptr;
    }
    if (registration->lifetime == Lifetime::Shared) {
        registration->shared = component;
        m_sharedInOrder.push_back(component);
        return component;
    }
    component->setParent(&m_perOperation);
    ++m_perOperationMade;
    component->deleteLater();
    return component;
}

void HostCore::logDebug(QString message)
{
    m_log.debug(message);
}

void HostCore::logError(QString message)
{
    m_log.error(message);
}

void HostCore::reclaim()
{
    // Deleted directly rather than by delivering their deferred deletes: that needs an
    // application object and the right loop level, which a command line calling the plug-in in
    // sequence may not have. A deleted object's pending deferred delete is dropped by Qt.
    const QObjectList outstanding = m_perOperation.children();
    for (QObject *component : outstanding)
        delete component;
}

int HostCore::perOperationComponentsMade() const
{
    return m_perOperationMade;
}

int HostCore::outstandingPerOperationComponents() const
{
    return m_perOperation.children().size();
}

} // namespace zthost
