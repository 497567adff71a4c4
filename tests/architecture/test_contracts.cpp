// The seven scriptable methods are declared in three places: the plug-in's class, the web
// bridge's façade and the contract every host object that stands in for the plug-in uses. These
// tests hold all three to one list, in one order.

#include "bridge/scriptable_facade.h"
#include "zt_cryptographic.h"

#include <plugin_host/scriptable_methods.h>
#include <plugin_host/session_key_algorithm.h>
#include <skf.h>

#include <QMetaMethod>
#include <QMetaObject>
#include <QStringList>

#include <gtest/gtest.h>

namespace {

QStringList invokableSignatures(const QMetaObject &meta)
{
    QStringList signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        if (method.methodType() == QMetaMethod::Method && method.access() == QMetaMethod::Public)
            signatures << QString::fromLatin1(method.methodSignature());
    }
    return signatures;
}

QStringList contractSignatures()
{
    QStringList signatures;
    for (const char *signature : ScriptableMethods::kSignatures)
        signatures << QString::fromLatin1(signature);
    return signatures;
}

TEST(Contracts, thePluginDeclaresExactlyTheSevenMethodsOfTheContract)
{
    EXPECT_EQ(invokableSignatures(ZtCryptographic::staticMetaObject), contractSignatures());
}

TEST(Contracts, theBridgeFacadeDeclaresExactlyTheSevenMethodsOfTheContract)
{
    EXPECT_EQ(invokableSignatures(zthost::bridge::ScriptableFacade::staticMetaObject),
              contractSignatures());
}

TEST(Contracts, theFacadeNamesTheMethodsInTheContractsOrder)
{
    EXPECT_EQ(zthost::bridge::ScriptableFacade::methodNames(),
              (QStringList{"WebOpenKey", "WebCloseKey", "WebVerifyPin", "WebGetCertData",
                           "WebZtEncode", "WebZtDecode", "WebGetLastErrorMsg"}));
}

TEST(Contracts, theSessionKeyAlgorithmIsTheSmartKeyInterfacesSm4Ecb)
{
    EXPECT_EQ(ZtSessionKey::kAlgorithmId, static_cast<unsigned long long>(SGD_SM4_ECB));
}

} // namespace
