#pragma once

#include "core/host_log.h"

#include <QObject>
#include <QString>

#include <functional>
#include <utility>
#include <memory>
#include <vector>

namespace zthost {

// The object a host hands to the plug-in's ComponentInit. The plug-in calls its three invokable
// methods by name; each name is declared once, with the types the plug-in passes.
//
// Components are registered with a factory and a lifetime:
// - Shared: made on first request, handed out again on every later one, owned by the core and
//   deleted with it (the signature manager, the key component).
// - PerOperation: a new object per request, deleted once control is back in the event loop
//   (deleteLater), or by reclaim() for hosts that run no loop. The plug-in never deletes what it
//   is handed, so without this a long-running host would grow with every call.
class HostCore : public QObject
{
    Q_OBJECT

public:
    enum class Lifetime { Shared, PerOperation };
    using Factory = std::function<QObject *()>;

    explicit HostCore(QObject *parent = nullptr);
    ~HostCore() override;

    HostLog &log() { return m_log; }

    // A request matches by ProgID, or by class identifier when the ProgID matches nothing. An
    // empty identifier matches nothing. A later registration of the same identifier wins.
    void registerComponent(const QString &progId, const QString &classId, Lifetime lifetime,
                           Factory make);

    // The component registered under `progId` (or else `classId`); null for anything else, or
    // when its factory failed. The core owns the answer (see Lifetime).
    Q_INVOKABLE QObject *createComponentObject(QString progId, QString classId);
    // The plug-in's trace, at debug and error level.
    Q_INVOKABLE void logDebug(QString message);
    Q_INVOKABLE void logError(QString message);

    // Deletes the per-operation components handed out so far, now, with or without an event
    // loop. Only for a point where the plug-in holds none of them, that is between two calls
    // into it.
    void reclaim();
    // Per-operation components handed out and not yet deleted.
    int outstandingPerOperationComponents() const;
    // Per-operation components handed out since the core was made.
    int perOperationComponentsMade() const;

    // Called with the ProgID of every component request, before it is answered; empty to stop.
    // A host uses it to learn how far the plug-in has come inside one of its calls.
    using RequestWatcher = std::function<void(const QString &progId)>;
    void setRequestWatcher(RequestWatcher watcher) { m_requestWatcher = std::move(watcher); }

private:
    struct Registration
    {
        QString progId;
        QString classId;
        Lifetime lifetime;
        Factory make;
        QObject *shared = nullptr;
    };

    Registration *find(const QString &progId, const QString &classId);

    HostLog m_log;
    std::vector<Registration> m_registrations;
    RequestWatcher m_requestWatcher;
    // Shared components in the order they were made; deleted in reverse, before the log.
    std::vector<QObject *> m_sharedInOrder;
    // Parent of every per-operation component until it is deleted; counts what is outstanding.
    QObject m_perOperation;
    int m_perOperationMade = 0;
};

} // namespace zthost
