#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

// A private root of software key devices for one test: SOFTSKF_ROOT points at a fresh temporary
// folder for the object's life (so the driver and the provisioning library both find it) and is
// restored afterwards, when the folder goes too.
class SoftKeyRoot
{
public:
    static constexpr const char *kContainer = "SM2Container";

    struct Device
    {
        QString name;
        const char *userPin;
        const char *adminPin;
        unsigned maxRetries = 6;
        QString commonName; // empty: the device name
    };

    SoftKeyRoot();
    ~SoftKeyRoot();
    SoftKeyRoot(const SoftKeyRoot &) = delete;
    SoftKeyRoot &operator=(const SoftKeyRoot &) = delete;

    QString path() const { return m_root.path(); }

    // Makes a device with one SM2 container (kContainer). The PIN hash is cheap: the tests that
    // use this are not about PIN checks. A failure is a test failure.
    void provision(const Device &device);
    // Takes a device away, as if it were pulled out.
    void unplug(const QString &device);
    // The DER certificate of the device's container; empty (and a test failure) when missing.
    QByteArray certificate(const QString &device, bool signing = false) const;

private:
    QTemporaryDir m_root;
    QByteArray m_savedRoot;
    bool m_hadRoot;
};
