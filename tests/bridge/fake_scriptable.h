#pragma once

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
    Q_INVOKABLE bool WebOpenKey();
    Q_INVOKABLE bool WebCloseKey();
    Q_INVOKABLE bool WebVerifyPin(QString pinCode);
    Q_INVOKABLE QString WebGetCertData(QString certtype);
    Q_INVOKABLE QString WebZtEncode(QString bas64SrcData, QString certData, quint64 ulAlgID);
    Q_INVOKABLE QString WebZtDecode(QString bas64EncData, quint64 ulAlgID);
    Q_INVOKABLE QString WebGetLastErrorMsg();

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
