#pragma once

#include <skf.h>

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>

namespace zthost {

class DriverAnswers;
class HostLog;
class SkfDriver;

// One opened key device: a connected device and its first application. The plug-in calls these
// methods by name; each name is declared once, with the types the plug-in passes.
//
// Every failure answers the method's failure value (false, 0, empty) and writes one line to the
// host log naming the device, the driver function, its result code and meaning. PINs never
// reach the log. Handles are the driver's, as qulonglong; only handles this object issued and
// has not closed are passed on to the driver, so a stale or made-up handle fails here instead
// of inside the driver.
//
// Owned by the key component that opened it. After close() every call fails cleanly.
class KeyObject : public QObject
{
    Q_OBJECT

public:
    KeyObject(SkfDriver &driver, HostLog &log, const QString &deviceName, DEVHANDLE device,
              HAPPLICATION application, QObject *parent = nullptr);
    // Releases what is still open, as close() does.
    ~KeyObject() override;

    QString deviceName() const { return m_deviceName; }
    // Where driver failures are recorded besides the log; none until set.
    void setAnswers(std::shared_ptr<DriverAnswers> answers) { m_answers = std::move(answers); }
    bool isClosed() const { return m_device == nullptr; }

    // Container names of the application; empty on failure.
    Q_INVOKABLE QStringList enumContainer();
    // A container handle; 0 on failure. A container that is open already answers the handle it
    // has: the plug-in opens its SM2 container for every envelope and never closes it, so new
    // handles would pile up in the host and the device for as long as the key stays open.
    Q_INVOKABLE qulonglong openContainer(QString name);
    // 0 empty, 1 RSA, 2 SM2; 0 on failure too.
    Q_INVOKABLE int getContainerType(qulonglong container);
    // Also closes the session keys imported into it.
    Q_INVOKABLE void closeContainer(qulonglong container);
    // The DER certificate, signing (true) or encryption (false); empty on failure.
    Q_INVOKABLE QByteArray exportCertificate(qulonglong container, bool signFlag);
    // false: the user PIN; true: the administrator PIN.
    Q_INVOKABLE bool verifyPin(QString pin, bool adminPin);
    // Forgets the login, closes keys, containers, the application and the device connection.
    Q_INVOKABLE void close();
    // The plug-in imports a session key for every envelope and never closes one, so only the
    // newest keys stay open: importing one more than this closes the oldest.
    static constexpr int kSessionKeysKept = 8;

    // Unwraps the first `blobLen` bytes of `blob` as a session key; its handle, or 0. Refuses a
    // length past the array or beyond 32 bits, an algorithm beyond 32 bits, and a driver whose
    // ULONG width is not known (the blob is laid out for it: key/driver_structures.h).
    Q_INVOKABLE qulonglong importSessionKey(qulonglong container, qulonglong algId, QByteArray blob,
                                            qulonglong blobLen);
    // `param` is the 44-byte block-cipher record; any other size answers false, and so does a
    // driver whose ULONG width is not known (the record is laid out for it).
    Q_INVOKABLE bool decryptInit(qulonglong key, QByteArray param);
    // Decrypts the first `len` bytes of `data`; the plaintext at its real length, empty on
    // failure (and for an empty plaintext).
    Q_INVOKABLE QByteArray decrypt(qulonglong key, QByteArray data, qulonglong len);

private:
    bool usable(const char *method);
    bool knownContainer(qulonglong container, const char *method);
    bool knownKey(qulonglong key, const char *method);
    void logRefusal(const char *method, const QString &reason);
    void logFailure(const char *function, ULONG code, const QString &detail = QString(),
                    long triesLeft = -1, bool adminPin = false);
    void closeKeysOf(qulonglong container);
    void closeKey(qulonglong key);
    void releaseEverything();

    SkfDriver &m_driver;
    HostLog &m_log;
    std::shared_ptr<DriverAnswers> m_answers;
    QString m_deviceName;
    DEVHANDLE m_device;
    HAPPLICATION m_application;
    QSet<qulonglong> m_containers;
    // Open containers by name, for answering a second openContainer of the same one.
    QHash<QString, qulonglong> m_containerByName;
    // Session key handle -> the container it was imported into.
    QHash<qulonglong, qulonglong> m_keys;
    // Session keys from oldest to newest.
    QList<qulonglong> m_keyOrder;
};

} // namespace zthost
