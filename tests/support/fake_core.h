#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

// The host core as the library sees it: hands out components by ProgID and records every trace
// line the library sends to its logger.
class FakeCore : public QObject
{
    Q_OBJECT

public:
    struct Creation
    {
        QString progId;
        QString classId;
    };

    enum class Level { Debug, Error };
    struct Trace
    {
        Level level;
        QString text;
    };

    FakeCore();
    ~FakeCore() override;

    // Every createComponentObject for `progId` answers make(); the core owns what it returns.
    // A ProgID with no provider answers null.
    void provide(const QString &progId, std::function<QObject *()> make);
    // Every createComponentObject for `progId` answers this object, which the caller keeps.
    void provideShared(const QString &progId, QObject *component);
    void withdraw(const QString &progId);

    Q_INVOKABLE QObject *createComponentObject(QString progId, QString classId);
    Q_INVOKABLE void logDebug(QString message);
    Q_INVOKABLE void logError(QString message);

    const QList<Creation> &creations() const { return m_creations; }
    const QList<Trace> &traces() const { return m_traces; }
    void clearRecords();

    // Trace lines with the level as a prefix, "D " or "E ", and the line tag of any trace in
    // `untagged` methods replaced by "#", so that lines tagged by source position compare
    // exactly: "D [WebOpenKey:#] start ".
    QStringList traceLines(const QStringList &untaggedMethods = {}) const;

private:
    QHash<QString, std::function<QObject *()>> m_providers;
    std::vector<std::unique_ptr<QObject>> m_made;
    QList<Creation> m_creations;
    QList<Trace> m_traces;
};
