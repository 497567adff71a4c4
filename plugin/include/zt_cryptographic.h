#pragma once

#include "zt_export.h"

#include <QByteArray>
#include <QObject>
#include <QString>

class KeyObjectAgent;
class ZtSignatureManagerAgent;

// The scriptable object the host's web front end calls. Created by CreateComponent with no
// parent and owned by the host. Every invokable method answers failure with false or the text
// "false" and records the reason in the process-wide error code (WebGetLastErrorMsg reads it);
// success leaves the code as it was. Single-threaded: call on the host's calling thread.
class ZT_EXPORT ZtCryptographic : public QObject
{
    Q_OBJECT

public:
    explicit ZtCryptographic(QObject *parent = nullptr);
    ~ZtCryptographic() override;

    // Opens the first key the key component lists and keeps it for the other methods.
    Q_INVOKABLE bool WebOpenKey();
    // Closes the opened key on the device. Always true; the key stays the current one.
    Q_INVOKABLE bool WebCloseKey();
    // Verifies the user PIN on the opened key. The PIN is never logged.
    Q_INVOKABLE bool WebVerifyPin(QString pinCode);
    // The encryption certificate of the key's first SM2 container as Base64, or "false".
    // `certtype` is accepted and ignored.
    Q_INVOKABLE QString WebGetCertData(QString certtype);
    // Validates the recipient certificate (Base64) only: "" when it decodes to at least one
    // byte, else "false". Content and algorithm are ignored; no envelope is produced.
    Q_INVOKABLE QString WebZtEncode(QString bas64SrcData, QString certData, quint64 ulAlgID);
    // Opens a Base64 digital envelope on the key; the plaintext as Base64, or "false".
    Q_INVOKABLE QString WebZtDecode(QString bas64EncData, quint64 ulAlgID);
    // The message of the last failure of any object of the process; changes nothing.
    Q_INVOKABLE QString WebGetLastErrorMsg();

    // The open handle of the first container of `type` on `userKey` (2: SM2), left open for the
    // caller; 0 when there is none. Containers tried before it are closed again.
    quint64 GetContainer(KeyObjectAgent *userKey, int type);

    // 0x04 followed by the first 64 bytes of the public key the host's certificate component
    // reads from `certData` (X then Y), zero-filled where it gave less or nothing: always 65
    // bytes, except an empty array for an empty certificate. Sets no error code.
    QByteArray ZtGetPubKeyByCert(QByteArray certData);

private:
    // Written only by WebOpenKey; never deleted here (an earlier agent is simply dropped).
    KeyObjectAgent *m_userKey = nullptr;
    // A child of this object, made by the constructor.
    ZtSignatureManagerAgent *m_signatureManager;
};
