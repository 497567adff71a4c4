// Loading the built plug-in the way a host application does: dlopen by path, the four entry
// points resolved by their plain names, the scriptable object driven only through Qt's
// meta-object system.

#include "fake_core.h"
#include "fake_key_host.h"
#include "log_sandbox.h"

#include <QMetaObject>
#include <QPointer>

#include <gtest/gtest.h>

#include <dlfcn.h>

namespace {

using GetVersionFn = int (*)(char *, unsigned int *);
using CreateComponentFn = QObject *(*)(const QString &, const QString &);
using ComponentInitFn = int (*)(QObject *);
using ComponentDestroyFn = void (*)();

// The plug-in opened for one test and closed again at its end. It stays mapped, as a host keeps
// it: the objects it leaves behind on purpose must still be traceable to its code when the leak
// checker looks at them at exit.
class LoadedPlugin
{
public:
    LoadedPlugin() : m_handle(dlopen(ZT_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {}
    ~LoadedPlugin()
    {
        if (m_handle)
            dlclose(m_handle);
    }
    LoadedPlugin(const LoadedPlugin &) = delete;
    LoadedPlugin &operator=(const LoadedPlugin &) = delete;

    bool isLoaded() const { return m_handle != nullptr; }

    template<typename Fn>
    Fn resolve(const char *name) const
    {
        return reinterpret_cast<Fn>(dlsym(m_handle, name));
    }

private:
    void *m_handle;
};

struct KeyDoubles
{
    FakeCore core;
    FakeSignatureManager signatureManager;
    QObject keyManager;
    FakeKeyComponent keyComponent;
    ScriptedKeyObject key;
    QByteArray certificate = QByteArrayLiteral("\x30\x03\x02\x01\x2a");

    KeyDoubles()
    {
        signatureManager.keyManager = &keyManager;
        keyComponent.keys = {&key};
        key.containers = {ScriptedKeyObject::sm2(QStringLiteral("enc"), 0x2a, certificate)};
        core.provideShared(QStringLiteral("ZTSIGNATUREMANAGER.ZtSignatureManager.1"),
                           &signatureManager);
        core.provideShared(QStringLiteral("ZTKEY.ZtKey.1"), &keyComponent);
    }
};

} // namespace

TEST(PluginLoading, pluginLoadsWithEverySymbolBound)
{
    LoadedPlugin plugin;
    EXPECT_TRUE(plugin.isLoaded()) << dlerror();
}

TEST(PluginLoading, fourEntryPointsResolveByPlainName)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.isLoaded()) << dlerror();
    EXPECT_NE(plugin.resolve<GetVersionFn>("Zt_GetVersion"), nullptr);
    EXPECT_NE(plugin.resolve<CreateComponentFn>("CreateComponent"), nullptr);
    EXPECT_NE(plugin.resolve<ComponentInitFn>("ComponentInit"), nullptr);
    EXPECT_NE(plugin.resolve<ComponentDestroyFn>("ComponentDestroy"), nullptr);
}

TEST(PluginLoading, versionSizeQueryAnswersEleven)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.isLoaded()) << dlerror();
    auto getVersion = plugin.resolve<GetVersionFn>("Zt_GetVersion");
    ASSERT_NE(getVersion, nullptr);
    unsigned int length = 0;
    EXPECT_EQ(getVersion(nullptr, &length), 0);
    EXPECT_EQ(length, 11u);
}

TEST(PluginLoading, hostDrivesTheKeyRoadThroughTheMetaObject)
{
    // Declared first so that it is unloaded last: the host's key manager holds a key agent whose
    // code lives in the plug-in until the host releases it.
    LoadedPlugin plugin;
    LogSandbox logs;
    KeyDoubles host;
    ASSERT_TRUE(plugin.isLoaded()) << dlerror();
    auto componentInit = plugin.resolve<ComponentInitFn>("ComponentInit");
    auto createComponent = plugin.resolve<CreateComponentFn>("CreateComponent");
    auto componentDestroy = plugin.resolve<ComponentDestroyFn>("ComponentDestroy");
    ASSERT_TRUE(componentInit && createComponent && componentDestroy);

    ASSERT_EQ(componentInit(&host.core), 1);
    QObject *crypto = createComponent(QStringLiteral("Crypto.ZtCryptographic.1"), QString());
    ASSERT_NE(crypto, nullptr);
    EXPECT_STREQ(crypto->metaObject()->className(), "ZtCryptographic");

    bool opened = false;
    ASSERT_TRUE(QMetaObject::invokeMethod(crypto, "WebOpenKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, opened)));
    EXPECT_TRUE(opened);

    bool verified = true;
    ASSERT_TRUE(QMetaObject::invokeMethod(crypto, "WebVerifyPin", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, verified),
                                          Q_ARG(QString, QStringLiteral("000000"))));
    EXPECT_FALSE(verified);
    QString message;
    ASSERT_TRUE(QMetaObject::invokeMethod(crypto, "WebGetLastErrorMsg", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, message)));
    EXPECT_EQ(message, QStringLiteral("您输入的电子钥匙盘密码错误，请重新输入!"));

    ASSERT_TRUE(QMetaObject::invokeMethod(crypto, "WebVerifyPin", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, verified),
                                          Q_ARG(QString, host.key.userPin)));
    EXPECT_TRUE(verified);

    QString certificate;
    ASSERT_TRUE(QMetaObject::invokeMethod(crypto, "WebGetCertData", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, certificate),
                                          Q_ARG(QString, QStringLiteral("0"))));
    EXPECT_EQ(certificate, QString::fromLatin1(host.certificate.toBase64()));

    bool closed = false;
    ASSERT_TRUE(QMetaObject::invokeMethod(crypto, "WebCloseKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, closed)));
    EXPECT_TRUE(closed);

    EXPECT_EQ(host.key.calls,
              QStringList({QStringLiteral("verifyPin(000000,false)"),
                           QStringLiteral("verifyPin(123456,false)"),
                           QStringLiteral("enumContainer()"), QStringLiteral("openContainer(enc)"),
                           QStringLiteral("getContainerType(42)"),
                           QStringLiteral("exportCertificate(42,false)"),
                           QStringLiteral("close()")}));

    // Shut-down in the host's order: its objects first, then the plug-in's core agent.
    delete crypto;
    componentDestroy();
    EXPECT_FALSE(host.core.traces().isEmpty());
}

TEST(PluginLoading, shutdownLeavesHostObjectsAlone)
{
    LoadedPlugin plugin;
    LogSandbox logs;
    KeyDoubles host;
    ASSERT_TRUE(plugin.isLoaded()) << dlerror();
    QPointer<QObject> keyManager(&host.keyManager);
    QPointer<QObject> key(&host.key);
    QPointer<QObject> core(&host.core);

    plugin.resolve<ComponentInitFn>("ComponentInit")(&host.core);
    QObject *crypto = plugin.resolve<CreateComponentFn>("CreateComponent")(
        QString(), QStringLiteral("7D19A0C4-5522-3333-9E1B84C20D57A6F0"));
    ASSERT_NE(crypto, nullptr);
    bool opened = false;
    QMetaObject::invokeMethod(crypto, "WebOpenKey", Qt::DirectConnection,
                              Q_RETURN_ARG(bool, opened));
    EXPECT_TRUE(opened);
    delete crypto;
    plugin.resolve<ComponentDestroyFn>("ComponentDestroy")();

    EXPECT_FALSE(core.isNull());
    EXPECT_FALSE(keyManager.isNull());
    EXPECT_FALSE(key.isNull());
    EXPECT_EQ(host.key.calls.count(QStringLiteral("close()")), 0);
    // The key agent the plug-in parented to the host's key manager is still there for the host.
    EXPECT_EQ(host.keyManager.children().size(), 1);
}
