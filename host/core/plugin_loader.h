#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

namespace zthost {

// Loads the cryptographic plug-in the way a host application does: dlopen by path, the four
// entry points resolved by their plain C names, ComponentInit with the host core, scriptable
// objects from CreateComponent.
//
// The loader owns the objects it creates. shutdown() (or the destructor) deletes them and only
// then calls ComponentDestroy, the order the plug-in expects.
//
// The library is opened with RTLD_NODELETE and never unmapped: the plug-in parents objects of
// its own classes to host components (its key agents live under the key component), and those
// outlive the loader; their code and meta-objects must stay mapped until the process ends.
class PluginLoader
{
public:
    // Null with `error` set when the file cannot be loaded or lacks an entry point, e.g.
    // "cannot load plug-in /x/libZtCryptographic.so.1: <reason>" or
    // "symbol CreateComponent missing in /x/libZtCryptographic.so.1".
    static std::unique_ptr<PluginLoader> load(const QString &path, QString *error);

    ~PluginLoader();
    PluginLoader(const PluginLoader &) = delete;
    PluginLoader &operator=(const PluginLoader &) = delete;

    QString path() const { return m_path; }

    // ComponentInit(core); the plug-in keeps `core`, which must outlive shutdown(). False with
    // `error` set when the plug-in refuses it.
    bool initialize(QObject *core, QString *error = nullptr);

    // A new scriptable object, owned by the loader; null when the plug-in makes none for these
    // identifiers.
    QObject *createComponent(const QString &progId, const QString &classId = QString());
    // createComponent("Crypto.ZtCryptographic.1"): the scriptable object pages call.
    QObject *createScriptableObject();
    // Deletes `component`, one of the objects createComponent made, before shutdown(); does
    // nothing for an object the loader did not make or has already deleted.
    void destroyComponent(QObject *component);

    // The length of the plug-in's version text (the size query: hosts never ask for the text).
    unsigned int versionLength() const;

    // Deletes the created objects that still exist, then calls ComponentDestroy once when
    // initialize() succeeded. Later calls do nothing.
    void shutdown();

private:
    using GetVersionFn = int (*)(char *, unsigned int *);
    using ComponentInitFn = int (*)(QObject *);
    using CreateComponentFn = QObject *(*)(const QString &, const QString &);
    using ComponentDestroyFn = void (*)();

    PluginLoader() = default;

    QString m_path;
    void *m_handle = nullptr;
    GetVersionFn m_getVersion = nullptr;
    ComponentInitFn m_componentInit = nullptr;
    CreateComponentFn m_createComponent = nullptr;
    ComponentDestroyFn m_componentDestroy = nullptr;
    bool m_initialized = false;
    QList<QPointer<QObject>> m_created;
};

} // namespace zthost
