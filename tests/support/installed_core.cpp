#include "installed_core.h"

#include "entry_points.h"

InstalledCore::InstalledCore(QObject *core)
{
    ComponentInit(core);
}

InstalledCore::~InstalledCore()
{
    ComponentDestroy();
}
