// What a host project sees of the plug-in through its target: the public headers and nothing
// else. The include directories come from the build (plugin_include_dirs.txt, written by CMake
// from the target's property, which carries Qt's directories too; those are not ours to judge).

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QString>
#include <QStringList>

#include "qt_printers.h"

#include <gtest/gtest.h>

namespace {

// The target's include directories inside this project's source and build trees.
QStringList pluginIncludeDirectories()
{
    QFile file(QStringLiteral(ZT_PLUGIN_INCLUDE_DIRS_FILE));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName().toStdString();
    QStringList directories;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
        const QString directory = QDir::cleanPath(line.trimmed());
        if (directory.startsWith(QStringLiteral(ZT_SOURCE_DIR))
            || directory.startsWith(QStringLiteral(ZT_BINARY_DIR)))
            directories << directory;
    }
    return directories;
}

QStringList headersUnder(const QString &directory)
{
    QStringList headers;
    QDirIterator it(directory, {QStringLiteral("*.h")}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        headers << QDir(directory).relativeFilePath(it.next());
    return headers;
}

TEST(PublicInterface, thePluginTargetReachesOnlyItsPublicHeaders)
{
    const QStringList directories = pluginIncludeDirectories();
    ASSERT_FALSE(directories.isEmpty());
    QStringList reachable;
    for (const QString &directory : directories)
        reachable << headersUnder(directory);
    reachable.sort();
    EXPECT_EQ(reachable, (QStringList{"entry_points.h", "zt_cryptographic.h", "zt_envelope_data.h",
                                      "zt_export.h"}))
        << "through " << directories.join(QLatin1String(", ")).toStdString();
}

TEST(PublicInterface, noPrivateHeaderOfThePluginIsReachable)
{
    const QStringList directories = pluginIncludeDirectories();
    const QString plugin = QDir(QStringLiteral(ZT_SOURCE_DIR)).filePath(QStringLiteral("plugin"));
    const QString publicFolder = QDir(plugin).filePath(QStringLiteral("include"));
    QDirIterator it(plugin, {QStringLiteral("*.h")}, QDir::Files, QDirIterator::Subdirectories);
    int privateHeaders = 0;
    while (it.hasNext()) {
        const QFileInfo header(it.next());
        if (header.path() == publicFolder)
            continue;
        ++privateHeaders;
        for (const QString &directory : directories)
            EXPECT_FALSE(QFileInfo::exists(QDir(directory).filePath(header.fileName())))
                << header.fileName().toStdString() << " is reachable through " << directory.toStdString();
    }
    EXPECT_GT(privateHeaders, 10);
}

} // namespace
