// The scriptable object itself: its meta-object as the host's web front end reads it, cast and
// dispatch through qt_metacast / qt_metacall, the constructor's request for the signature
// manager, WebGetLastErrorMsg, and the form of the core trace lines every method writes.

#include "error_probe.h"
#include "qt_printers.h"
#include "agents.h"
#include "crypto_error.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "qt_compat.h"
#include "signature_core.h"
#include "stdout_capture.h"
#include "zt_cryptographic.h"

#include <QByteArray>
#include <QMetaMethod>
#include <QMetaObject>
#include <QPointer>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>

namespace {

const QString kManagerProgId = QStringLiteral("ZTSIGNATUREMANAGER.ZtSignatureManager.1");
const QString kManagerClassId = QStringLiteral("A3C5E761-0B2F-4D88-B613-2F97C4D1E05B");

// One test's world: the log sandbox first (agents read the temporary path when they are made),
// a complete key host, and the object under test, with the records of its construction cleared.
struct Scriptable
{
    LogSandbox logs;
    KeyHost host;
    ZtCryptographic crypto;

    Scriptable() { host.core.clearRecords(); }

    QStringList hostCalls() const { return host.hostCalls(); }
};

struct MethodRow
{
    int index;
    const char *signature;
    const char *parameterNames;
    const char *returnType;
};

// The seven invokable methods in the order the web front end indexes them.
const MethodRow kMethods[] = {
    {0, "WebOpenKey()", "", "bool"},
    {1, "WebCloseKey()", "", "bool"},
    {2, "WebVerifyPin(QString)", "pinCode", "bool"},
    {3, "WebGetCertData(QString)", "certtype", "QString"},
    {4, "WebZtEncode(QString,QString,qulonglong)", "bas64SrcData,certData,ulAlgID", "QString"},
    {5, "WebZtDecode(QString,qulonglong)", "bas64EncData,ulAlgID", "QString"},
    {6, "WebGetLastErrorMsg()", "", "QString"},
};

} // namespace

// Meta-object.

TEST(ScriptableObject, metaObjectIsNamedZtCryptographicOverQObject)
{
    const QMetaObject &meta = ZtCryptographic::staticMetaObject;
    EXPECT_STREQ(meta.className(), "ZtCryptographic");
    EXPECT_EQ(meta.superClass(), &QObject::staticMetaObject);
}

TEST(ScriptableObject, metaObjectHasExactlySevenOwnMethods)
{
    const QMetaObject &meta = ZtCryptographic::staticMetaObject;
    EXPECT_EQ(meta.methodOffset(), QObject::staticMetaObject.methodCount());
    EXPECT_EQ(meta.methodCount() - meta.methodOffset(), 7);
}

TEST(ScriptableObject, ownMethodsHaveTheirSignaturesNamesAndResultTypes)
{
    const QMetaObject &meta = ZtCryptographic::staticMetaObject;
    for (const MethodRow &row : kMethods) {
        SCOPED_TRACE(row.signature);
        const QMetaMethod method = meta.method(meta.methodOffset() + row.index);
        EXPECT_EQ(method.methodSignature(), QByteArray(row.signature));
        EXPECT_EQ(method.parameterNames().join(','), QByteArray(row.parameterNames));
        EXPECT_STREQ(method.typeName(), row.returnType);
    }
}

TEST(ScriptableObject, ownMethodsArePublicPlainMethods)
{
    const QMetaObject &meta = ZtCryptographic::staticMetaObject;
    for (const MethodRow &row : kMethods) {
        SCOPED_TRACE(row.signature);
        const QMetaMethod method = meta.method(meta.methodOffset() + row.index);
        EXPECT_EQ(method.methodType(), QMetaMethod::Method); // neither signal nor slot
        EXPECT_EQ(method.access(), QMetaMethod::Public);
    }
}

TEST(ScriptableObject, metaObjectHasNoPropertiesEnumeratorsOrClassInfo)
{
    const QMetaObject &meta = ZtCryptographic::staticMetaObject;
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
    EXPECT_EQ(meta.enumeratorCount(), meta.enumeratorOffset());
    EXPECT_EQ(meta.classInfoCount(), meta.classInfoOffset());
}

TEST(ScriptableObject, objectAnswersTheStaticMetaObject)
{
    Scriptable s;
    EXPECT_EQ(s.crypto.metaObject(), &ZtCryptographic::staticMetaObject);
}

// Cast.

TEST(ScriptableObject, metacastToZtCryptographicYieldsTheObject)
{
    Scriptable s;
    EXPECT_EQ(s.crypto.qt_metacast("ZtCryptographic"), static_cast<void *>(&s.crypto));
}

TEST(ScriptableObject, metacastToQObjectYieldsTheObjectThroughTheBase)
{
    Scriptable s;
    EXPECT_EQ(s.crypto.qt_metacast("QObject"),
              static_cast<void *>(static_cast<QObject *>(&s.crypto)));
}

TEST(ScriptableObject, metacastToAnyOtherNameYieldsNull)
{
    Scriptable s;
    for (const char *name : {"Q_Dispatch", "ZtCryptographicX", "ztcryptographic", ""}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(s.crypto.qt_metacast(name), nullptr);
    }
}

TEST(ScriptableObject, metacastWithNullNameYieldsNull)
{
    Scriptable s;
    EXPECT_EQ(s.crypto.qt_metacast(nullptr), nullptr);
}

// Dispatch.

TEST(ScriptableObject, metacallPastTheSevenMethodsReturnsTheLoweredIndexAndCallsNothing)
{
    Scriptable s;
    const int offset = ZtCryptographic::staticMetaObject.methodOffset();
    // Argument slots a mistaken dispatch could use without harm; the result slot is null.
    QString text = QStringLiteral("0");
    QString moreText = QStringLiteral("MAMCAQc=");
    qulonglong number = 0x401;
    void *args[] = {nullptr, &text, &moreText, &number};
    for (int past : {7, 8, 13, 100}) {
        SCOPED_TRACE(past);
        EXPECT_EQ(s.crypto.qt_metacall(QMetaObject::InvokeMetaMethod, offset + past, args),
                  past - 7);
    }
    EXPECT_EQ(s.hostCalls(), QStringList());
    EXPECT_EQ(s.host.core.traceLines(), QStringList());
    EXPECT_TRUE(s.host.core.creations().isEmpty());
}

TEST(ScriptableObject, metacallOfAnOwnMethodReturnsTheIndexLoweredBySeven)
{
    Scriptable s;
    const int offset = ZtCryptographic::staticMetaObject.methodOffset();
    QString message;
    void *args[] = {&message};
    SetCryptoErrorCode(ZtError::kWrongPin);
    EXPECT_EQ(s.crypto.qt_metacall(QMetaObject::InvokeMetaMethod, offset + 6, args), -1);
    EXPECT_EQ(message, QStringLiteral("您输入的电子钥匙盘密码错误，请重新输入!"));
}

TEST(ScriptableObject, metacallWithNullResultSlotStillRunsTheMethod)
{
    Scriptable s;
    const int offset = ZtCryptographic::staticMetaObject.methodOffset();
    void *openArgs[] = {nullptr};
    EXPECT_EQ(s.crypto.qt_metacall(QMetaObject::InvokeMetaMethod, offset + 0, openArgs), -7);
    EXPECT_EQ(s.hostCalls(), (QStringList{"getZtKey()", "count()", "open(0)"}));

    s.host.key.calls.clear();
    QString pin = QStringLiteral("123456");
    void *verifyArgs[] = {nullptr, &pin};
    EXPECT_EQ(s.crypto.qt_metacall(QMetaObject::InvokeMetaMethod, offset + 2, verifyArgs), -5);
    EXPECT_EQ(s.host.key.calls, QStringList{"verifyPin(123456,false)"});

    s.host.key.calls.clear();
    QString certtype = QStringLiteral("0");
    void *exportArgs[] = {nullptr, &certtype};
    EXPECT_EQ(s.crypto.qt_metacall(QMetaObject::InvokeMetaMethod, offset + 3, exportArgs), -4);
    EXPECT_TRUE(s.host.key.calls.contains(QStringLiteral("exportCertificate(257,false)")))
        << s.host.key.calls.join(QLatin1Char(' ')).toStdString();
}

TEST(ScriptableObject, webZtDecodeAnswersItsTextThroughTheMetaObject)
{
    Scriptable s;
    QString answer = QStringLiteral("unset");
    ASSERT_TRUE(QMetaObject::invokeMethod(&s.crypto, "WebZtDecode", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, answer),
                                          Q_ARG(QString, QString()), Q_ARG(qulonglong, 0x401)));
    // No key was opened, so the envelope is refused.
    EXPECT_EQ(answer, QStringLiteral("false"));
}

// Construction and destruction.

TEST(ScriptableObject, constructorAsksTheCoreForTheSignatureManagerByItsIds)
{
    LogSandbox logs;
    KeyHost host;
    ZtCryptographic crypto;
    ASSERT_EQ(host.core.creations().size(), 1);
    EXPECT_EQ(host.core.creations().at(0).progId, kManagerProgId);
    EXPECT_EQ(host.core.creations().at(0).classId, kManagerClassId);
}

TEST(ScriptableObject, signatureManagerAgentIsTheObjectsOnlyChildAroundTheComponent)
{
    Scriptable s;
    ASSERT_EQ(s.crypto.children().size(), 1);
    const auto *agent = dynamic_cast<ZtSignatureManagerAgent *>(s.crypto.children().first());
    ASSERT_NE(agent, nullptr);
    EXPECT_EQ(agent->target(), &s.host.signatureManager);
}

TEST(ScriptableObject, constructorWritesNoTraceAndSetsNoErrorCode)
{
    LogSandbox logs;
    KeyHost host;
    SetCryptoErrorCode(kEarlierCode);
    ZtCryptographic crypto;
    EXPECT_EQ(host.core.traceLines(), QStringList());
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(ScriptableObject, destructorRemovesTheAgentButLeavesTheKeyAndComponentsAlone)
{
    LogSandbox logs;
    KeyHost host;
    auto crypto = std::make_unique<ZtCryptographic>();
    ASSERT_TRUE(crypto->WebOpenKey());
    ASSERT_EQ(crypto->children().size(), 1);
    QPointer<QObject> agent = crypto->children().first();
    host.key.calls.clear();

    crypto.reset();

    EXPECT_TRUE(agent.isNull());
    EXPECT_EQ(host.key.calls, QStringList()); // the key is not closed
    EXPECT_EQ(host.signatureManager.getZtKeyCalls, 1);
}

TEST(ScriptableObject, objectMadeBeforeComponentInitPrintsOnceAndCannotOpenTheKey)
{
    LogSandbox logs;
    ASSERT_EQ(getSignatureCore(), nullptr);
    SetCryptoErrorCode(kEarlierCode);
    StdoutCapture out;
    ZtCryptographic crypto;
    const QString messageAfterConstruction = currentErrorMessage();
    KeyHost host; // the core arrives only now
    const bool opened = crypto.WebOpenKey();
    const QByteArray printed = out.text();

    EXPECT_EQ(printed,
              QByteArray("createComponentObject = A3C5E761-0B2F-4D88-B613-2F97C4D1E05B  fail"));
    EXPECT_EQ(messageAfterConstruction, kEarlierCodeKept);
    EXPECT_FALSE(opened);
    EXPECT_EQ(currentErrorMessage(), QStringLiteral("未检测到电子密钥盘"));
    EXPECT_EQ(host.signatureManager.getZtKeyCalls, 0);
    EXPECT_TRUE(host.core.creations().isEmpty());
}

// WebGetLastErrorMsg.

TEST(ScriptableObject, lastErrorMessageAnswersThroughTheMetaObject)
{
    Scriptable s;
    SetCryptoErrorCode(ZtError::kContainerNotFound);
    QString message;
    ASSERT_TRUE(QMetaObject::invokeMethod(&s.crypto, "WebGetLastErrorMsg", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, message)));
    EXPECT_EQ(message, QStringLiteral("密钥盘容器不存在"));
}

TEST(ScriptableObject, lastErrorMessageWritesNoTraceAndKeepsTheCode)
{
    Scriptable s;
    SetCryptoErrorCode(ZtError::kEncryptionCertificateNotRead);
    EXPECT_EQ(s.crypto.WebGetLastErrorMsg(), QStringLiteral("获取加密证书失败"));
    EXPECT_EQ(s.crypto.WebGetLastErrorMsg(), QStringLiteral("获取加密证书失败"));
    EXPECT_EQ(currentErrorMessage(), QStringLiteral("获取加密证书失败"));
    EXPECT_EQ(s.host.core.traceLines(), QStringList());
    EXPECT_EQ(s.hostCalls(), QStringList());
}

TEST(ScriptableObject, lastErrorMessageOfACodeOutsideTheTableShowsTheCode)
{
    Scriptable s;
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(s.crypto.WebGetLastErrorMsg(), kEarlierCodeKept);
}

TEST(ScriptableObject, lastErrorMessageKeepsChineseTextUnderTheDefaultLocaleCodec)
{
    Scriptable s;
    SetCryptoErrorCode(ZtError::kNoKeyDevice);
    EXPECT_EQ(s.crypto.WebGetLastErrorMsg(), QStringLiteral("未检测到电子密钥盘"));
}

TEST(ScriptableObject, lastErrorMessageUnderLatin1LocaleCodecGivesOneCharacterPerByte)
{
    // Qt 6 difference: Qt 6 has no locale codec a host can set (local 8-bit text is UTF-8 on
    // Linux), so this case cannot arise there; the next test holds on Qt 6 instead.
    if (!zt_test::kLocaleCodecIsSettable)
        GTEST_SKIP() << "Qt 6 has no locale codec to set";
    Scriptable s;
    zt_test::LocaleCodecOverride latin1("ISO-8859-1");
    ASSERT_TRUE(latin1.installed());
    SetCryptoErrorCode(ZtError::kNoKeyDevice);

    const QString message = s.crypto.WebGetLastErrorMsg();

    const QByteArray utf8 = QByteArrayLiteral("未检测到电子密钥盘");
    ASSERT_EQ(utf8.size(), 27);
    EXPECT_EQ(message, QString::fromLatin1(utf8));
    EXPECT_EQ(message.size(), 27);
}

TEST(ScriptableObject, lastErrorMessageOnQt6KeepsChineseTextWhateverTheLocale)
{
    // Qt 6 difference: the Qt 5 case above becomes this one. Nothing a host or the environment
    // sets changes how the message is decoded, so it always reaches the page intact.
    if (zt_test::kLocaleCodecIsSettable)
        GTEST_SKIP() << "Qt 5: the locale codec is the host's choice (test above)";
    Scriptable s;
    zt_test::LocaleCodecOverride latin1("ISO-8859-1");
    EXPECT_FALSE(latin1.installed());
    const QByteArray savedLanguage = qgetenv("LC_ALL");
    qputenv("LC_ALL", "C");
    SetCryptoErrorCode(ZtError::kNoKeyDevice);

    const QString message = s.crypto.WebGetLastErrorMsg();

    if (savedLanguage.isNull())
        qunsetenv("LC_ALL");
    else
        qputenv("LC_ALL", savedLanguage);
    EXPECT_EQ(message, QStringLiteral("未检测到电子密钥盘"));
}

// Core trace.

TEST(ScriptableObject, traceLineIsBracketedMethodAndTagFollowedByTheMessage)
{
    Scriptable s;
    ASSERT_TRUE(s.crypto.WebCloseKey());
    ASSERT_EQ(s.host.core.traces().size(), 1);
    const FakeCore::Trace &trace = s.host.core.traces().first();
    EXPECT_EQ(trace.level, FakeCore::Level::Debug);
    const QRegularExpression form(QStringLiteral("^\\[WebCloseKey:[1-9][0-9]*\\] start $"));
    EXPECT_TRUE(form.match(trace.text).hasMatch()) << trace.text.toStdString();
}
