#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

// Every method name of the host vocabulary, each taking a non-const reference, which the
// plug-in's dispatcher refuses to pass. Only its meta-object is used: a FaultProxy shows it in
// place of its target's to make one call meet a refused parameter type.
class RefusingVocabulary : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE QObject *createComponentObject(QString &progId);
    Q_INVOKABLE void logDebug(QString &message);
    Q_INVOKABLE void logError(QString &message);
    Q_INVOKABLE QObject *getZtKey(QString &caller);
    Q_INVOKABLE int count(QString &filter);
    Q_INVOKABLE QObject *open(QByteArray &what);
    Q_INVOKABLE QStringList enumContainer(QStringList &into);
    Q_INVOKABLE qulonglong openContainer(QString &name);
    Q_INVOKABLE int getContainerType(qulonglong &container);
    Q_INVOKABLE void closeContainer(qulonglong &container);
    Q_INVOKABLE QByteArray exportCertificate(qulonglong &container);
    Q_INVOKABLE bool verifyPin(QString &pin);
    Q_INVOKABLE void close(QString &why);
    Q_INVOKABLE qulonglong importSessionKey(QByteArray &blob);
    Q_INVOKABLE bool decryptInit(QByteArray &param);
    Q_INVOKABLE QByteArray decrypt(QByteArray &data);
    Q_INVOKABLE QByteArray getPublicKeyData(QByteArray &into);
    Q_INVOKABLE bool create(int &tag);
    Q_INVOKABLE bool checkTag(int &tag);
    Q_INVOKABLE QObject *getChild(int &index);
    Q_INVOKABLE QObject *addSample(int &tag);
    Q_INVOKABLE QObject *addStruct(int &tag);
    Q_INVOKABLE void update(QString &why);
    Q_INVOKABLE QByteArray build(QByteArray &into);
    Q_INVOKABLE bool setData(QByteArray &data);
    Q_INVOKABLE bool addBlock(QByteArray &der);
    Q_INVOKABLE QByteArray toByteArray(QByteArray &into);
};
