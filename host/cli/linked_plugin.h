#pragma once

#include <QObject>
#include <QString>

namespace zthost::cli {

// The command links the plug-in library for the one class it uses directly (ZtEnvelopeData) and
// loads the scriptable object from a file with the PluginLoader. When both are the same file,
// the dynamic linker hands back the object already mapped: one copy, one core agent. When
// --plugin names another file, the linked copy still serves ZtEnvelopeData and needs a core of
// its own; its ComponentInit is the one the dynamic linker resolves first for the whole process.
class LinkedPluginCore
{
public:
    LinkedPluginCore() = default;
    ~LinkedPluginCore();
    LinkedPluginCore(const LinkedPluginCore &) = delete;
    LinkedPluginCore &operator=(const LinkedPluginCore &) = delete;

    // Installs `core` on the linked copy unless `loadedPluginPath`, already loaded, is that
    // very copy (its PluginLoader installed the core then).
    void installUnlessSameFile(const QString &loadedPluginPath, QObject *core);
    bool installed() const { return m_installed; }

    // ComponentDestroy of the linked copy, once, when installUnlessSameFile() installed a core.
    void release();

private:
    bool m_installed = false;
};

// Whether `path` names the plug-in file this program was linked with (compared as loaded
// objects, so a symbolic link or another spelling of the same file counts as the same).
bool isLinkedPluginFile(const QString &path);

} // namespace zthost::cli
