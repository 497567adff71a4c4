// Holds the source tree to the layers docs/ARCHITECTURE.md draws: every folder of the four areas
// is in its layer table, and every include goes to the same folder or to a lower layer of an
// area it may include from. So no folder reaches up, and no two folders include each other.

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QHash>
#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include <gtest/gtest.h>

namespace {

const QString kSourceDir = QStringLiteral(ZT_SOURCE_DIR);

struct Layout
{
    // Folder (relative to the source tree) -> layer.
    QMap<QString, int> layers;
    // Area ("plugin/") -> the folder prefixes it may include from besides itself.
    QMap<QString, QStringList> areas;
};

QString backticked(const QString &cell)
{
    static const QRegularExpression code(QStringLiteral("`([^`]+)`"));
    const QRegularExpressionMatch match = code.match(cell);
    return match.hasMatch() ? match.captured(1) : QString();
}

QStringList allBackticked(const QString &cell)
{
    static const QRegularExpression code(QStringLiteral("`([^`]+)`"));
    QStringList found;
    auto it = code.globalMatch(cell);
    while (it.hasNext())
        found << it.next().captured(1);
    return found;
}

Layout readLayout()
{
    Layout layout;
    QFile file(QDir(kSourceDir).filePath(QStringLiteral("docs/ARCHITECTURE.md")));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << "docs/ARCHITECTURE.md is missing";
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        if (!line.startsWith(QLatin1Char('|')))
            continue;
        const QStringList cells = line.split(QLatin1Char('|'));
        if (cells.size() < 4)
            continue;
        bool isLayer = false;
        const int layer = cells.at(1).trimmed().toInt(&isLayer);
        if (isLayer) {
            layout.layers.insert(backticked(cells.at(2)), layer);
            continue;
        }
        const QString area = backticked(cells.at(1));
        if (area.endsWith(QLatin1Char('/')) && !area.contains(QLatin1Char(' ')))
            layout.areas.insert(area, allBackticked(cells.at(cells.size() - 2)));
    }
    return layout;
}

struct SourceFile
{
    QString path;   // relative to the source tree
    QString folder; // its folder, relative
};

QList<SourceFile> sourceFiles(const Layout &layout)
{
    QList<SourceFile> files;
    for (const QString &area : layout.areas.keys()) {
        QDirIterator it(QDir(kSourceDir).filePath(area), {QStringLiteral("*.h"), QStringLiteral("*.cpp")},
                        QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString relative = QDir(kSourceDir).relativeFilePath(it.next());
            files.push_back({relative, QFileInfo(relative).path()});
        }
    }
    return files;
}

QString areaOf(const QString &folder)
{
    return folder.section(QLatin1Char('/'), 0, 0) + QLatin1Char('/');
}

QStringList includesOf(const QString &relativePath)
{
    static const QRegularExpression include(QStringLiteral("^\\s*#\\s*include\\s*[<\"]([^>\"]+)[>\"]"));
    QStringList found;
    QFile file(QDir(kSourceDir).filePath(relativePath));
    if (!file.open(QIODevice::ReadOnly))
        return found;
    QTextStream in(&file);
    while (!in.atEnd()) {
        const QRegularExpressionMatch match = include.match(in.readLine());
        if (match.hasMatch())
            found << match.captured(1);
    }
    return found;
}

class Layers : public ::testing::Test
{
protected:
    void SetUp() override
    {
        layout = readLayout();
        ASSERT_FALSE(layout.layers.isEmpty()) << "no layer table in docs/ARCHITECTURE.md";
        ASSERT_FALSE(layout.areas.isEmpty()) << "no area table in docs/ARCHITECTURE.md";
        files = sourceFiles(layout);
        ASSERT_FALSE(files.isEmpty());
    }

    // The file an include names, resolved the way the build's include directories would: a file
    // of the same folder first, then the one file of the tree whose path ends with the name,
    // preferring the includer's own area. Empty for headers from outside the tree.
    QString resolve(const SourceFile &from, const QString &include) const
    {
        QStringList candidates;
        for (const SourceFile &file : files) {
            if (file.path == include || file.path.endsWith(QLatin1Char('/') + include))
                candidates << file.path;
        }
        for (const QString &candidate : candidates) {
            if (QFileInfo(candidate).path() == from.folder)
                return candidate;
        }
        if (candidates.size() > 1) {
            QStringList sameArea;
            for (const QString &candidate : candidates) {
                if (areaOf(candidate) == areaOf(from.folder))
                    sameArea << candidate;
            }
            if (!sameArea.isEmpty())
                candidates = sameArea;
        }
        EXPECT_LE(candidates.size(), 1) << from.path.toStdString() << " includes \""
                                        << include.toStdString() << "\", which could be any of "
                                        << candidates.join(QLatin1String(", ")).toStdString();
        return candidates.value(0);
    }

    Layout layout;
    QList<SourceFile> files;
};

TEST_F(Layers, everyFolderOfTheTreeIsInTheLayerTable)
{
    QSet<QString> folders;
    for (const SourceFile &file : qAsConst(files))
        folders.insert(file.folder);
    for (const QString &folder : qAsConst(folders))
        EXPECT_TRUE(layout.layers.contains(folder))
            << folder.toStdString() << " holds sources but is not in docs/ARCHITECTURE.md's layers";
}

TEST_F(Layers, everyFolderOfTheLayerTableExists)
{
    for (const QString &folder : layout.layers.keys())
        EXPECT_TRUE(QDir(QDir(kSourceDir).filePath(folder)).exists()) << folder.toStdString();
}

TEST_F(Layers, everyIncludeGoesDownOrStaysInItsFolder)
{
    int checked = 0;
    for (const SourceFile &file : qAsConst(files)) {
        const int fromLayer = layout.layers.value(file.folder, -1);
        const QStringList allowed = layout.areas.value(areaOf(file.folder));
        for (const QString &include : includesOf(file.path)) {
            const QString target = resolve(file, include);
            if (target.isEmpty())
                continue;
            ++checked;
            const QString targetFolder = QFileInfo(target).path();
            if (targetFolder == file.folder)
                continue;
            const bool sameArea = areaOf(targetFolder) == areaOf(file.folder);
            bool allowedArea = sameArea;
            for (const QString &prefix : allowed)
                allowedArea = allowedArea || (targetFolder + QLatin1Char('/')).startsWith(prefix);
            EXPECT_TRUE(allowedArea) << file.path.toStdString() << " includes "
                                     << target.toStdString() << ": "
                                     << areaOf(file.folder).toStdString()
                                     << " may not include from there";
            EXPECT_LT(layout.layers.value(targetFolder, 1000), fromLayer)
                << file.path.toStdString() << " (layer " << fromLayer << ") includes "
                << target.toStdString() << " (layer " << layout.layers.value(targetFolder, -1)
                << "): an include must go to a lower layer";
        }
    }
    EXPECT_GT(checked, 300) << "the includes of the tree were not found";
}

// Said outright as well, so that widening the area table by mistake cannot let it through.
TEST_F(Layers, thePluginIncludesNothingOfTheHostOrTheDevice)
{
    for (const SourceFile &file : qAsConst(files)) {
        if (areaOf(file.folder) != QLatin1String("plugin/"))
            continue;
        for (const QString &include : includesOf(file.path)) {
            const QString target = resolve(file, include);
            EXPECT_TRUE(target.isEmpty() || target.startsWith(QLatin1String("plugin/"))
                        || target.startsWith(QLatin1String("contracts/")))
                << file.path.toStdString() << " includes " << target.toStdString();
        }
    }
}

} // namespace
