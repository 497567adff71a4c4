#pragma once

#include <QObject>

namespace zthost {

class HostCore;

// The signature manager the plug-in asks for first: it leads to the key component.
class SignatureManager : public QObject
{
    Q_OBJECT

public:
    // `core` must outlive this object; the core that owns it does.
    explicit SignatureManager(HostCore *core, QObject *parent = nullptr);

    // The core's key component (shared, owned by the core); null when the core has none. The
    // plug-in parents objects of its own to it.
    Q_INVOKABLE QObject *getZtKey();

private:
    HostCore *m_core;
};

} // namespace zthost
