#pragma once

#include "fake_core.h"
#include "fake_key_host.h"
#include "installed_core.h"

#include <QObject>

// A complete test host for the key road: a core installed with ComponentInit that hands out the
// signature manager and the key component by their ProgIDs, a key manager object that "getZtKey"
// answers, and one attached key with a single SM2 container named "enc" (handle 0x101) holding
// `encryptionCertificate`. Tests change any part before they call the library.
struct KeyHost
{
    static constexpr qulonglong kSm2Handle = 0x101;

    FakeCore core;
    FakeSignatureManager signatureManager;
    QObject keyManager;
    FakeKeyComponent keyComponent;
    ScriptedKeyObject key;
    QByteArray encryptionCertificate = QByteArrayLiteral("\x30\x03\x02\x01\x07");

    KeyHost();
    ~KeyHost();

    // Takes the key away: "count" answers 0.
    void detachKeys() { keyComponent.keys.clear(); }

    // Every host call of the key road so far, in road order: "getZtKey()", "count()",
    // "open(0)", then the key object's calls.
    QStringList hostCalls() const;
    // Forgets what the host saw so far (traces, creations, calls); the key and its state stay.
    void clearRecords();

private:
    InstalledCore m_installed;
};
