// The built plug-in's dynamic symbol table and dynamic section: exactly the exported interface
// a host links against, the SONAME hosts load by, and the run-time search path.

#include "test_data.h"

#include <QByteArray>
#include <QFile>
#include <QSet>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <cstdio>

namespace {

QByteArray runCommand(const QString &command)
{
    QByteArray output;
    FILE *pipe = popen(command.toLocal8Bit().constData(), "r");
    if (!pipe)
        return output;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, static_cast<int>(n));
    pclose(pipe);
    return output;
}

QSet<QString> definedDynamicSymbols()
{
    const QByteArray table = runCommand(
        QStringLiteral("nm -D --defined-only --format=posix '%1'").arg(QLatin1String(ZT_PLUGIN_PATH)));
    QSet<QString> symbols;
    for (const QByteArray &line : table.split('\n')) {
        const QByteArray name = line.trimmed().split(' ').value(0);
        if (!name.isEmpty())
            symbols.insert(QString::fromLatin1(name));
    }
    return symbols;
}

QSet<QString> expectedSymbols()
{
    QFile file(testDataFile("exported_symbols.txt"));
    QSet<QString> symbols;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return symbols;
    for (QByteArray line : file.readAll().split('\n')) {
        line = line.left(line.indexOf('#')).trimmed();
        if (!line.isEmpty())
            symbols.insert(QString::fromLatin1(line));
    }
    return symbols;
}

QStringList sorted(const QSet<QString> &set)
{
    QStringList list = set.values();
    list.sort();
    return list;
}

} // namespace

TEST(ExportedSymbols, expectationFileIsReadable)
{
    EXPECT_EQ(expectedSymbols().size(), 47) << "tests/data/exported_symbols.txt lost lines";
}

TEST(ExportedSymbols, pluginExportsExactlyItsInterface)
{
    const QSet<QString> actual = definedDynamicSymbols();
    const QSet<QString> expected = expectedSymbols();
    ASSERT_FALSE(actual.isEmpty()) << "nm read nothing from " << ZT_PLUGIN_PATH;

    const QStringList missing = sorted(expected - actual);
    const QStringList extra = sorted(actual - expected);
    EXPECT_TRUE(missing.isEmpty()) << "not exported: " << missing.join(QLatin1Char(' ')).toStdString();
    EXPECT_TRUE(extra.isEmpty()) << "exported but not part of the interface: "
                                 << extra.join(QLatin1Char(' ')).toStdString();
}

TEST(ExportedSymbols, entryPointsAreUnmangledFunctions)
{
    const QByteArray table = runCommand(
        QStringLiteral("nm -D --defined-only '%1'").arg(QLatin1String(ZT_PLUGIN_PATH)));
    for (const char *entry : {" T Zt_GetVersion", " T CreateComponent", " T ComponentInit",
                              " T ComponentDestroy"}) {
        SCOPED_TRACE(entry);
        EXPECT_TRUE(table.contains(QByteArray(entry) + '\n'));
    }
}

TEST(ExportedSymbols, errorCodeVariableStaysPrivate)
{
    const QByteArray table = runCommand(
        QStringLiteral("nm -D '%1'").arg(QLatin1String(ZT_PLUGIN_PATH)));
    ASSERT_FALSE(table.isEmpty());
    EXPECT_FALSE(table.contains("g_errCode"));
}

TEST(ExportedSymbols, sonameIsVersionOne)
{
    const QByteArray dynamic = runCommand(
        QStringLiteral("readelf -d '%1'").arg(QLatin1String(ZT_PLUGIN_PATH)));
    EXPECT_TRUE(dynamic.contains("Library soname: [libZtCryptographic.so.1]")) << dynamic.constData();
}

TEST(ExportedSymbols, searchPathIsOwnFolderThenHostApplication)
{
    const QByteArray dynamic = runCommand(
        QStringLiteral("readelf -d '%1'").arg(QLatin1String(ZT_PLUGIN_PATH)));
    const QByteArray expected = QByteArray("path: [$ORIGIN:") + ZT_HOST_APP_DIR + "]";
    EXPECT_TRUE(dynamic.contains(expected)) << dynamic.constData();
}
