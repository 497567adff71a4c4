#include "linked_plugin.h"

#include "entry_points.h"

#include <QFile>

#include <dlfcn.h>

namespace zthost::cli {

namespace {
// The name the program's own dependency on the library was recorded under.
constexpr char kLinkedSoname[] = ZT_PLUGIN_SONAME;

void *alreadyLoaded(const QByteArray &name)
{
    return dlopen(name.constData(), RTLD_NOW | RTLD_NOLOAD);
}
} // namespace

bool isLinkedPluginFile(const QString &path)
{
    // RTLD_NOLOAD answers the handle of an object already mapped, and glibc recognises a file
    // by its device and inode, so the two handles are equal exactly when it is one object.
    void *linked = alreadyLoaded(QByteArray(kLinkedSoname));
    void *named = alreadyLoaded(QFile::encodeName(path));
    const bool same = linked && named && linked == named;
    if (linked)
        dlclose(linked);
    if (named)
        dlclose(named);
    return same;
}

LinkedPluginCore::~LinkedPluginCore()
{
    release();
}

void LinkedPluginCore::installUnlessSameFile(const QString &loadedPluginPath, QObject *core)
{
    if (m_installed || isLinkedPluginFile(loadedPluginPath))
        return;
    ComponentInit(core);
    m_installed = true;
}

void LinkedPluginCore::release()
{
    if (!m_installed)
        return;
    m_installed = false;
    ComponentDestroy();
}

} // namespace zthost::cli
