// The plug-in loader: refusals that name the file and the symbol, the built plug-in driven by
// name through the real host core, and the shut-down order.


#include <plugin_host/component_ids.h>
#include "core/host_core.h"
#include "core/plugin_loader.h"
#include "session/standard_components.h"
#include "log_sandbox.h"

#include <QFile>
#include <QPointer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <dlfcn.h>

using namespace zthost;

namespace {

const QString kPluginPath = QStringLiteral(ZT_PLUGIN_PATH);
const QString kFakePluginPath = QStringLiteral(ZT_FAKE_PLUGIN_PATH);
const QString kFakePluginWithoutDestroyPath = QStringLiteral(ZT_FAKE_PLUGIN_WITHOUT_DESTROY_PATH);

// The event record of the stand-in plug-in, read through its own extra symbols.
QString fakeEvents()
{
    void *handle = dlopen(ZT_FAKE_PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD);
    if (!handle)
        return QStringLiteral("<not loaded>");
    auto events = reinterpret_cast<const char *(*)()>(dlsym(handle, "FakePluginEvents"));
    const QString text = events ? QString::fromLatin1(events()) : QStringLiteral("<no record>");
    dlclose(handle);
    return text;
}

void resetFakeEvents()
{
    void *handle = dlopen(ZT_FAKE_PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD);
    if (!handle)
        return;
    if (auto reset = reinterpret_cast<void (*)()>(dlsym(handle, "FakePluginReset")))
        reset();
    dlclose(handle);
}

QString invokeLastErrorMessage(QObject *crypto)
{
    QString message;
    EXPECT_TRUE(QMetaObject::invokeMethod(crypto, "WebGetLastErrorMsg", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, message)));
    return message;
}

} // namespace

TEST(PluginLoader, missingFileIsNamedWithTheLoadersReason)
{
    QString error;
    const QString path = QStringLiteral("/nonexistent/libZtCryptographic.so.1");
    EXPECT_EQ(PluginLoader::load(path, &error), nullptr);
    EXPECT_TRUE(error.startsWith(
        QStringLiteral("cannot load plug-in /nonexistent/libZtCryptographic.so.1: ")))
        << error.toStdString();
    EXPECT_TRUE(error.contains(QStringLiteral("No such file"))) << error.toStdString();
}

TEST(PluginLoader, fileThatIsNoLibraryIsRefused)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("libZtCryptographic.so.1"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("not an ELF file");
    file.close();
    QString error;
    EXPECT_EQ(PluginLoader::load(path, &error), nullptr);
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot load plug-in %1: ").arg(path)))
        << error.toStdString();
}

TEST(PluginLoader, missingEntryPointIsNamed)
{
    QString error;
    EXPECT_EQ(PluginLoader::load(kFakePluginWithoutDestroyPath, &error), nullptr);
    EXPECT_EQ(
        error,
        QStringLiteral("symbol ComponentDestroy missing in %1").arg(kFakePluginWithoutDestroyPath));
}

TEST(PluginLoader, shutdownDeletesObjectsBeforeComponentDestroy)
{
    QString error;
    auto loader = PluginLoader::load(kFakePluginPath, &error);
    ASSERT_NE(loader, nullptr) << error.toStdString();
    resetFakeEvents();
    QObject core;
    ASSERT_TRUE(loader->initialize(&core, &error)) << error.toStdString();
    ASSERT_NE(loader->createComponent(QLatin1String(ZtComponentIds::kCryptographicProgId)), nullptr);
    ASSERT_NE(loader->createComponent(QLatin1String(ZtComponentIds::kCryptographicProgId)), nullptr);
    loader->shutdown();
    EXPECT_EQ(fakeEvents(), QStringLiteral("init create create deleted deleted destroy"));
    loader->shutdown();
    EXPECT_EQ(fakeEvents(), QStringLiteral("init create create deleted deleted destroy"));
}

TEST(PluginLoader, objectsTheHostDeletedItselfAreSkipped)
{
    QString error;
    auto loader = PluginLoader::load(kFakePluginPath, &error);
    ASSERT_NE(loader, nullptr) << error.toStdString();
    resetFakeEvents();
    QObject core;
    ASSERT_TRUE(loader->initialize(&core));
    delete loader->createComponent(QLatin1String(ZtComponentIds::kCryptographicProgId));
    loader.reset();
    EXPECT_EQ(fakeEvents(), QStringLiteral("init create deleted destroy"));
}

TEST(PluginLoader, componentDestroyOnlyAfterInitialisation)
{
    QString error;
    auto loader = PluginLoader::load(kFakePluginPath, &error);
    ASSERT_NE(loader, nullptr) << error.toStdString();
    resetFakeEvents();
    loader.reset();
    EXPECT_EQ(fakeEvents(), QString());
}

TEST(PluginLoader, realPluginAnswersItsVersionLength)
{
    QString error;
    auto loader = PluginLoader::load(kPluginPath, &error);
    ASSERT_NE(loader, nullptr) << error.toStdString();
    EXPECT_EQ(loader->versionLength(), 11u);
    EXPECT_EQ(loader->path(), kPluginPath);
}

TEST(PluginLoader, realPluginIsDrivenByNameThroughTheHostCore)
{
    LogSandbox logs(LogSandbox::CoreLog::Off); // the plug-in's core log stays in a private folder
    QTemporaryDir dir;
    HostCore core;
    ASSERT_TRUE(core.log().setFile(dir.filePath(QStringLiteral("host.log"))));
    StandardComponentOptions options;
    options.skfDriverPath = dir.filePath(QStringLiteral("no-driver.so")); // no key device at all
    registerStandardComponents(core, options);

    QString error;
    auto loader = PluginLoader::load(kPluginPath, &error);
    ASSERT_NE(loader, nullptr) << error.toStdString();
    ASSERT_TRUE(loader->initialize(&core, &error)) << error.toStdString();
    QPointer<QObject> crypto = loader->createScriptableObject();
    ASSERT_FALSE(crypto.isNull());
    EXPECT_STREQ(crypto->metaObject()->className(), "ZtCryptographic");
    EXPECT_EQ(loader->createComponent(QStringLiteral("Crypto.Nothing.1")), nullptr);

    bool opened = true;
    ASSERT_TRUE(QMetaObject::invokeMethod(crypto, "WebOpenKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, opened)));
    EXPECT_FALSE(opened);
    EXPECT_EQ(invokeLastErrorMessage(crypto), QStringLiteral("未检测到电子密钥盘"));

    loader->shutdown();
    EXPECT_TRUE(crypto.isNull());
    // The plug-in's key agent stays parented to the host's key component; the core deletes it
    // at the end of this test, with the plug-in still mapped.
}
