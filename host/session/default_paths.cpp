#include "session/default_paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace zthost {

namespace {
QString firstExisting(const QStringList &candidates)
{
    for (const QString &candidate : candidates) {
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return candidates.last();
}

// The installed library folder as seen from the installed program folder: "../lib" for the usual
// layouts, computed by CMake from the installation directories.
QString installedLibrary(const QString &fileName)
{
    return besideExecutable(QStringLiteral(ZT_LIBDIR_FROM_BINDIR "/") + fileName);
}
} // namespace

QString executableDirectory()
{
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath();
    // Test programs and tools without an application object; the same source Qt uses on Linux.
    return QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath()).path();
}

bool runsFromBuildTree()
{
    const QString buildTree = QFileInfo(QStringLiteral(ZT_BUILD_TREE_DIR)).canonicalFilePath();
    if (buildTree.isEmpty())
        return false;
    const QString executable = QFileInfo(executableDirectory()).canonicalFilePath();
    return executable == buildTree || executable.startsWith(buildTree + QLatin1Char('/'));
}

QString besideExecutable(const QString &relativePath)
{
    return QDir::cleanPath(QDir(executableDirectory()).filePath(relativePath));
}

QStringList defaultPluginCandidates()
{
    QStringList candidates;
    if (runsFromBuildTree())
        candidates << QStringLiteral(ZT_BUILT_PLUGIN_PATH);
    candidates << installedLibrary(QStringLiteral(ZT_PLUGIN_FILE_NAME));
    return candidates;
}

QString defaultPluginPath()
{
    return firstExisting(defaultPluginCandidates());
}

QStringList defaultSkfDriverCandidates()
{
    QStringList candidates;
    // Empty when the host is configured without the software device.
    if (sizeof(ZT_BUILT_SOFTSKF_PATH) > 1 && runsFromBuildTree())
        candidates << QStringLiteral(ZT_BUILT_SOFTSKF_PATH);
    candidates << installedLibrary(QStringLiteral(ZT_SOFTSKF_FILE_NAME));
    return candidates;
}

QString defaultSkfDriverPath()
{
    return firstExisting(defaultSkfDriverCandidates());
}

} // namespace zthost
