#pragma once

#include <plugin_host/scriptable_methods.h>

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

// Stands in for the plug-in's scriptable object behind the bridge: the same seven methods,
// each recording its name and answering what the test set.
class FakeScriptable : public QObject
{
    Q_OBJECT

public:
    ZT_SCRIPTABLE_METHODS

    QString rightPin = QStringLiteral("4321-right");
    QString certificate = QStringLiteral("MIIBcertificate");
    QString plaintext = QStringLiteral("aGVsbG8=");
    QString lastError = QStringLiteral("errorcode : [0]");

    QStringList calls;
    // The arguments of the last WebZtDecode call.
    QString decodeData;
    quint64 decodeAlgorithm = 0;
    // Runs inside WebZtDecode, before it answers.
    std::function<void()> duringDecode;
};
