#include "core/plugin_loader.h"

#include <plugin_host/component_ids.h>

#include <dlfcn.h>

namespace zthost {

namespace {

// dlerror() text is the loader's best description of what went wrong; "unknown reason" stands
// in when it has none.
QString lastDlError()
{
    const char *reason = dlerror();
    return reason ? QString::fromLocal8Bit(reason) : QStringLiteral("unknown reason");
}

template <typename Fn>
bool resolve(void *handle, const char *name, const QString &path, Fn *out, QString *error)
{
    dlerror();
    void *symbol = dlsym(handle, name);
    if (!symbol) {
        if (error)
            *error = QStringLiteral("symbol %1 missing in %2").arg(QLatin1String(name), path);
        return false;
    }
    *out = reinterpret_cast<Fn>(symbol);
    return true;
}

} // namespace

std::unique_ptr<PluginLoader> PluginLoader::load(const QString &path, QString *error)
{
    const QByteArray file = path.toLocal8Bit();
    void *handle = dlopen(file.constData(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        if (error)
            *error = QStringLiteral("cannot load plug-in %1: %2").arg(path, lastDlError());
        return nullptr;
    }

    std::unique_ptr<PluginLoader> loader(new PluginLoader);
    loader->m_path = path;
    loader->m_handle = handle;
    if (!resolve(handle, "Zt_GetVersion", path, &loader->m_getVersion, error)
        || !resolve(handle, "ComponentInit", path, &loader->m_componentInit, error)
        || !resolve(handle, "CreateComponent", path, &loader->m_createComponent, error)
        || !resolve(handle, "ComponentDestroy", path, &loader->m_componentDestroy, error)) {
        return nullptr; // the destructor drops the reference; RTLD_NODELETE keeps it mapped
    }
    return loader;
}

PluginLoader::~PluginLoader()
{
    shutdown();
    // Drops our reference only: RTLD_NODELETE keeps the code mapped for objects of the plug-in's
    // classes that host components still hold.
    if (m_handle)
        dlclose(m_handle);
}

bool PluginLoader::initialize(QObject *core, QString *error)
{
    const int answer = m_componentInit(core);
    if (answer != 1) {
        if (error)
            *error = QStringLiteral("ComponentInit in %1 answered %2, expected 1")
                         .arg(m_path)
                         .arg(answer);
        return false;
    }
    m_initialized = true;
    return true;
}

QObject *PluginLoader::createComponent(const QString &progId, const QString &classId)
{
    QObject *component = m_createComponent(progId, classId);
    if (component)
        m_created.append(QPointer<QObject>(component));
    return component;
}

QObject *PluginLoader::createScriptableObject()
{
    return createComponent(QLatin1String(ZtComponentIds::kCryptographicProgId));
}

void PluginLoader::destroyComponent(QObject *component)
{
    for (int i = 0; i < m_created.size(); ++i) {
        if (m_created.at(i) == component) {
            m_created.removeAt(i);
            delete component;
            return;
        }
    }
}

unsigned int PluginLoader::versionLength() const
{
    unsigned int length = 0;
    m_getVersion(nullptr, &length);
    return length;
}

void PluginLoader::shutdown()
{
    // The host's objects first: their destructors may still reach the plug-in's core agent,
    // which ComponentDestroy deletes.
    for (const QPointer<QObject> &component : qAsConst(m_created))
        delete component.data();
    m_created.clear();
    if (m_initialized) {
        m_initialized = false;
        m_componentDestroy();
    }
}

} // namespace zthost
