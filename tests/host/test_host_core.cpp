// The host core as the plug-in sees it: components by ProgID or class identifier, the log
// methods, and per-operation components reclaimed so that memory stays bounded.


#include <plugin_host/component_ids.h>
#include "core/host_core.h"
#include "core/signature_manager.h"
#include "session/standard_components.h"
#include "key/key_component.h"
#include "key/key_object.h"

#include <QEventLoop>
#include <QFile>
#include <QMetaMethod>
#include <QPointer>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

using namespace zthost;

namespace {

// A core with the four standard components, a key component over a driver that does not exist
// (these tests never reach a device), and its log in a private file.
class HostCoreTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        logPath = dir.filePath(QStringLiteral("host.log"));
        QString error;
        ASSERT_TRUE(core.log().setFile(logPath, &error)) << error.toStdString();
        StandardComponentOptions options;
        options.skfDriverPath = dir.filePath(QStringLiteral("no-such-driver.so"));
        registerStandardComponents(core, options);
    }

    QString logText() const
    {
        QFile file(logPath);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    QObject *create(const char *progId, const char *classId = "")
    {
        QObject *component = nullptr;
        EXPECT_TRUE(QMetaObject::invokeMethod(&core, "createComponentObject", Qt::DirectConnection,
                                              Q_RETURN_ARG(QObject *, component),
                                              Q_ARG(QString, QString::fromLatin1(progId)),
                                              Q_ARG(QString, QString::fromLatin1(classId))));
        return component;
    }

    QTemporaryDir dir;
    QString logPath;
    HostCore core;
};

struct Lookup
{
    const char *progId;
    const char *classId;
    const char *className;
    const char *reason;
};

const Lookup kLookups[] = {
    {ZtComponentIds::kSignatureManagerProgId, "", "zthost::SignatureManager",
     "signature manager by ProgID"},
    {"", ZtComponentIds::kSignatureManagerClassId, "zthost::SignatureManager",
     "signature manager by class id"},
    {ZtComponentIds::kKeyProgId, "", "zthost::KeyComponent", "key component by ProgID"},
    {"", ZtComponentIds::kKeyClassId, "zthost::KeyComponent", "key component by class id"},
    {"", "5f02b9d8-61e4-4a37-9c25-d0b3e8a41f76", "zthost::KeyComponent", "class ids ignore case"},
    {ZtComponentIds::kKeyProgId, ZtComponentIds::kSignatureManagerClassId, "zthost::KeyComponent",
     "the ProgID wins over the class id"},
    {"NOPE.Nothing.1", ZtComponentIds::kKeyClassId, "zthost::KeyComponent",
     "an unknown ProgID falls back to the class id"},
    {ZtComponentIds::kCertificateProgId, "", "zthost::CertificateComponent", "certificate component"},
    {ZtComponentIds::kAsnProgId, "", "zthost::AsnDocument", "ASN.1 component"},
};

const Lookup kUnknown[] = {
    {"", "", nullptr, "nothing asked for"},
    {"ZTUTIL.ZtCertificate.1", "", nullptr, "the corrected spelling is not registered"},
    {"ztkey.ztkey.1", "", nullptr, "ProgIDs are exact"},
    {"", "00000000-0000-0000-0000-000000000000", nullptr, "an unknown class id"},
    {ZtComponentIds::kCryptographicProgId, "", nullptr, "the plug-in's own ProgID is not the host's"},
};

} // namespace

TEST_F(HostCoreTest, handsOutEveryComponentByProgIdOrClassId)
{
    for (const Lookup &row : kLookups) {
        SCOPED_TRACE(row.reason);
        QObject *component = create(row.progId, row.classId);
        ASSERT_NE(component, nullptr);
        EXPECT_STREQ(component->metaObject()->className(), row.className);
    }
}

TEST_F(HostCoreTest, answersNullForAnythingElse)
{
    for (const Lookup &row : kUnknown) {
        SCOPED_TRACE(row.reason);
        EXPECT_EQ(create(row.progId, row.classId), nullptr);
    }
    EXPECT_TRUE(logText().contains(QStringLiteral("no component for ProgID \"ztkey.ztkey.1\"")))
        << logText().toStdString();
}

TEST_F(HostCoreTest, sharedComponentsAreHandedOutAgain)
{
    QObject *manager = create(ZtComponentIds::kSignatureManagerProgId);
    EXPECT_EQ(create("", ZtComponentIds::kSignatureManagerClassId), manager);
    QObject *keys = create(ZtComponentIds::kKeyProgId);
    EXPECT_EQ(create(ZtComponentIds::kKeyProgId), keys);
    EXPECT_EQ(manager->parent(), nullptr);
}

TEST_F(HostCoreTest, signatureManagerAnswersTheKeyComponent)
{
    QObject *manager = create(ZtComponentIds::kSignatureManagerProgId);
    QObject *key = nullptr;
    ASSERT_TRUE(QMetaObject::invokeMethod(manager, "getZtKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(QObject *, key)));
    EXPECT_EQ(key, create(ZtComponentIds::kKeyProgId));
}

TEST_F(HostCoreTest, perOperationComponentsAreNewEachTime)
{
    QObject *first = create(ZtComponentIds::kAsnProgId);
    QObject *second = create(ZtComponentIds::kAsnProgId);
    EXPECT_NE(first, second);
    EXPECT_NE(create(ZtComponentIds::kCertificateProgId), create(ZtComponentIds::kCertificateProgId));
    EXPECT_EQ(core.outstandingPerOperationComponents(), 4);
}

TEST_F(HostCoreTest, reclaimAfterTenThousandCreationsLeavesNothingBehind)
{
    constexpr int kCreations = 10000;
    QPointer<QObject> firstDocument = create(ZtComponentIds::kAsnProgId);
    QPointer<QObject> firstCertificate = create(ZtComponentIds::kCertificateProgId);
    for (int i = 1; i < kCreations; ++i) {
        ASSERT_NE(create(ZtComponentIds::kAsnProgId), nullptr);
        ASSERT_NE(create(ZtComponentIds::kCertificateProgId), nullptr);
    }
    EXPECT_EQ(core.outstandingPerOperationComponents(), 2 * kCreations);

    core.reclaim();

    EXPECT_EQ(core.outstandingPerOperationComponents(), 0);
    EXPECT_TRUE(firstDocument.isNull());
    EXPECT_TRUE(firstCertificate.isNull());
}

TEST_F(HostCoreTest, reclaimKeepsSharedComponents)
{
    QPointer<QObject> keys = create(ZtComponentIds::kKeyProgId);
    QPointer<QObject> manager = create(ZtComponentIds::kSignatureManagerProgId);
    create(ZtComponentIds::kAsnProgId);
    core.reclaim();
    EXPECT_FALSE(keys.isNull());
    EXPECT_FALSE(manager.isNull());
}

TEST_F(HostCoreTest, perOperationComponentsGoOnceTheEventLoopRuns)
{
    QPointer<QObject> document = create(ZtComponentIds::kAsnProgId);
    ASSERT_FALSE(document.isNull());
    QEventLoop loop;
    QTimer::singleShot(0, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_TRUE(document.isNull());
    EXPECT_EQ(core.outstandingPerOperationComponents(), 0);
}

TEST_F(HostCoreTest, coreDeletesWhatIsStillOutstanding)
{
    QPointer<QObject> document;
    QPointer<QObject> keys;
    {
        HostCore local;
        registerStandardComponents(local);
        document = local.createComponentObject(QLatin1String(ZtComponentIds::kAsnProgId), QString());
        keys = local.createComponentObject(QLatin1String(ZtComponentIds::kKeyProgId), QString());
        ASSERT_FALSE(document.isNull());
    }
    EXPECT_TRUE(document.isNull());
    EXPECT_TRUE(keys.isNull());
}

TEST_F(HostCoreTest, laterRegistrationReplacesAnEarlierOne)
{
    QPointer<QObject> replacement = new QObject;
    QObject *made = replacement;
    core.registerComponent(QLatin1String(ZtComponentIds::kAsnProgId), QString(),
                           HostCore::Lifetime::Shared, [made] { return made; });
    EXPECT_EQ(create(ZtComponentIds::kAsnProgId), made);
    core.reclaim();
    EXPECT_FALSE(replacement.isNull()); // shared now, so the core keeps it
}

TEST_F(HostCoreTest, failingFactoryAnswersNullAndSaysSo)
{
    core.registerComponent(QStringLiteral("TEST.Broken.1"), QString(),
                           HostCore::Lifetime::PerOperation, [] { return nullptr; });
    EXPECT_EQ(create("TEST.Broken.1"), nullptr);
    EXPECT_TRUE(
        logText().contains(QStringLiteral("[error] component \"TEST.Broken.1\" could not be made")))
        << logText().toStdString();
}

TEST_F(HostCoreTest, requestWatcherSeesEveryProgIdBeforeTheAnswerUntilCleared)
{
    QStringList seen;
    int outstandingWhenSeen = -1;
    core.setRequestWatcher([&](const QString &progId) {
        seen << progId;
        outstandingWhenSeen = core.outstandingPerOperationComponents();
    });
    ASSERT_NE(create(ZtComponentIds::kAsnProgId), nullptr);
    EXPECT_EQ(outstandingWhenSeen, 0) << "the watcher ran after the document was made";
    EXPECT_EQ(create("TEST.Unknown.1"), nullptr);
    EXPECT_NE(create("", ZtComponentIds::kSignatureManagerClassId), nullptr);
    EXPECT_EQ(seen, (QStringList{QLatin1String(ZtComponentIds::kAsnProgId),
                                 QStringLiteral("TEST.Unknown.1"), QString()}));

    core.setRequestWatcher(nullptr);
    ASSERT_NE(create(ZtComponentIds::kAsnProgId), nullptr);
    EXPECT_EQ(seen.size(), 3);
}

TEST_F(HostCoreTest, logMethodsReachTheHostLogByName)
{
    core.log().setThreshold(LogLevel::Debug);
    ASSERT_TRUE(
        QMetaObject::invokeMethod(&core, "logDebug", Qt::DirectConnection,
                                  Q_ARG(QString, QStringLiteral("[WebOpenKey:57] start "))));
    ASSERT_TRUE(QMetaObject::invokeMethod(&core, "logError", Qt::DirectConnection,
                                          Q_ARG(QString, QStringLiteral("[WebZtDecode:9] fail"))));
    const QString text = logText();
    EXPECT_TRUE(text.contains(QStringLiteral("[debug] [WebOpenKey:57] start \n")))
        << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("[error] [WebZtDecode:9] fail\n")))
        << text.toStdString();
}

TEST_F(HostCoreTest, pluginTraceAtDebugLevelIsDroppedByDefault)
{
    core.logDebug(QStringLiteral("[WebOpenKey:57] start "));
    EXPECT_FALSE(logText().contains(QStringLiteral("WebOpenKey")));
}

// The plug-in calls host methods by name, taking the first whose signature starts with
// "name(": every host class declares each name once, with the documented types.
TEST(HostMethodVocabulary, eachNameOnceWithTheDocumentedSignature)
{
    struct Row
    {
        const QMetaObject *metaObject;
        QStringList signatures; // "returnType name(types)"
    };
    const Row rows[] = {
        {&HostCore::staticMetaObject,
         {"QObject* createComponentObject(QString,QString)", "void logDebug(QString)",
          "void logError(QString)"}},
        {&SignatureManager::staticMetaObject, {"QObject* getZtKey()"}},
        {&KeyComponent::staticMetaObject, {"int count()", "QObject* open(int)"}},
        {&KeyObject::staticMetaObject,
         {"QStringList enumContainer()", "qulonglong openContainer(QString)",
          "int getContainerType(qulonglong)", "void closeContainer(qulonglong)",
          "QByteArray exportCertificate(qulonglong,bool)", "bool verifyPin(QString,bool)",
          "void close()",
          "qulonglong importSessionKey(qulonglong,qulonglong,QByteArray,qulonglong)",
          "bool decryptInit(qulonglong,QByteArray)",
          "QByteArray decrypt(qulonglong,QByteArray,qulonglong)"}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.metaObject->className());
        QStringList declared;
        QStringList names;
        for (int i = row.metaObject->methodOffset(); i < row.metaObject->methodCount(); ++i) {
            const QMetaMethod method = row.metaObject->method(i);
            declared << QString::fromLatin1(method.typeName()) + QLatin1Char(' ')
                            + QString::fromLatin1(method.methodSignature());
            names << QString::fromLatin1(method.name());
        }
        EXPECT_EQ(declared, row.signatures);
        EXPECT_EQ(names.removeDuplicates(), 0);
    }
}
