#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

// Test doubles of the key side of the host: signature manager, key component, key objects and
// certificate component, each with exactly the method vocabulary the library calls, recording
// every call with its arguments.

// "getZtKey" answers `keyManager` (null by default): the object the library parents its key
// agent to.
class FakeSignatureManager : public QObject
{
    Q_OBJECT

public:
    QObject *keyManager = nullptr;
    int getZtKeyCalls = 0;

    Q_INVOKABLE QObject *getZtKey();
};

// "count" answers the number of `keys`; "open(i)" answers keys[i], or null past the end.
class FakeKeyComponent : public QObject
{
    Q_OBJECT

public:
    QList<QObject *> keys;
    QList<int> openedIndices;
    int countCalls = 0;

    Q_INVOKABLE int count();
    Q_INVOKABLE QObject *open(int index);
};

// One key device with scripted containers. Calls are recorded as text in `calls`, for example
// "enumContainer()", "openContainer(enc)", "getContainerType(257)", "closeContainer(257)",
// "exportCertificate(257,false)", "verifyPin(123456,false)", "close()".
class ScriptedKeyObject : public QObject
{
    Q_OBJECT

public:
    struct Container
    {
        QString name;
        qulonglong handle = 0; // 0: "openContainer" fails for this name
        int type = 2;          // 1 RSA, 2 SM2
        QByteArray encryptionCertificate;
        QByteArray signatureCertificate;
    };

    QList<Container> containers;
    QString userPin = QStringLiteral("123456");
    QStringList calls;

    // Opened and not yet closed container handles, in opening order.
    QList<qulonglong> openHandles;

    // Answers for the envelope steps.
    qulonglong sessionKeyHandle = 0;
    bool decryptInitAnswer = false;
    QByteArray plaintext;

    static Container sm2(const QString &name, qulonglong handle, const QByteArray &encCert);

    Q_INVOKABLE QStringList enumContainer();
    Q_INVOKABLE qulonglong openContainer(QString name);
    Q_INVOKABLE int getContainerType(qulonglong container);
    Q_INVOKABLE void closeContainer(qulonglong container);
    Q_INVOKABLE QByteArray exportCertificate(qulonglong container, bool signFlag);
    Q_INVOKABLE bool verifyPin(QString pin, bool adminPin);
    Q_INVOKABLE void close();
    Q_INVOKABLE qulonglong importSessionKey(qulonglong container, qulonglong algId,
                                            QByteArray blob, qulonglong blobLen);
    Q_INVOKABLE bool decryptInit(qulonglong key, QByteArray param);
    Q_INVOKABLE QByteArray decrypt(qulonglong key, QByteArray data, qulonglong len);

private:
    const Container *byHandle(qulonglong handle) const;
};

// The host's certificate parser: "open" accepts what `accepts` equals (anything when
// acceptAnything), "getPublicKeyData" answers `publicKey`.
class FakeCertificateComponent : public QObject
{
    Q_OBJECT

public:
    QByteArray accepts;
    bool acceptAnything = false;
    QByteArray publicKey;
    QStringList calls;

    Q_INVOKABLE bool open(QByteArray certificate);
    Q_INVOKABLE QByteArray getPublicKeyData();
};
