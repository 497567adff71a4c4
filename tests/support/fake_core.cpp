#include "fake_core.h"

#include <QRegularExpression>

FakeCore::FakeCore() = default;
FakeCore::~FakeCore() = default;

void FakeCore::provide(const QString &progId, std::function<QObject *()> make)
{
    m_providers.insert(progId, [this, make = std::move(make)] {
        QObject *component = make();
        if (component)
            m_made.emplace_back(component);
        return component;
    });
}

void FakeCore::provideShared(const QString &progId, QObject *component)
{
    m_providers.insert(progId, [component] { return component; });
}

void FakeCore::withdraw(const QString &progId)
{
    m_providers.remove(progId);
}

QObject *FakeCore::createComponentObject(QString progId, QString classId)
{
    m_creations.append({progId, classId});
    auto provider = m_providers.constFind(progId);
    if (provider == m_providers.constEnd())
        return nullptr;
    return (*provider)();
}

void FakeCore::logDebug(QString message)
{
    m_traces.append({Level::Debug, message});
}

void FakeCore::logError(QString message)
{
    m_traces.append({Level::Error, message});
}

void FakeCore::clearRecords()
{
    m_creations.clear();
    m_traces.clear();
}

QStringList FakeCore::traceLines(const QStringList &untaggedMethods) const
{
    QStringList lines;
    for (const Trace &trace : m_traces) {
        QString text = trace.text;
        for (const QString &method : untaggedMethods) {
            const QRegularExpression tagged(QStringLiteral("^\\[%1:[1-9][0-9]*\\]")
                                                .arg(QRegularExpression::escape(method)));
            text.replace(tagged, QStringLiteral("[%1:#]").arg(method));
        }
        lines.append((trace.level == Level::Debug ? QStringLiteral("D ") : QStringLiteral("E "))
                     + text);
    }
    return lines;
}
