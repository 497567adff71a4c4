#pragma once

#include <QObject>

// Installs a core with ComponentInit for the life of the object; ComponentDestroy at the end.
class InstalledCore
{
public:
    explicit InstalledCore(QObject *core);
    ~InstalledCore();
    InstalledCore(const InstalledCore &) = delete;
    InstalledCore &operator=(const InstalledCore &) = delete;
};
