// The four plain-named entry points a host resolves (version query, component creation, core
// installation and removal) and the two functions through which the library reaches the core.

#include "qt_printers.h"
#include "agents.h"
#include "entry_points.h"
#include "fake_core.h"
#include "fake_key_host.h"
#include "log_sandbox.h"
#include "signature_core.h"
#include "stdout_capture.h"
#include "zt_cryptographic.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <ostream>

namespace {

const QString kProgId = QStringLiteral("Crypto.ZtCryptographic.1");
const QString kClassId = QStringLiteral("7D19A0C4-5522-3333-9E1B84C20D57A6F0");

constexpr char kUntouched = '\x5A';

// Every test starts and ends without a core agent, whatever the one before it left.
class EntryPoints : public testing::Test
{
protected:
    void SetUp() override { ComponentDestroy(); }
    void TearDown() override { ComponentDestroy(); }

    LogSandbox sandbox; // before any agent: agents read the temporary path when made
};

// A core that knows the signature manager, so that new ZtCryptographic objects are quiet.
struct CoreWithManager
{
    FakeCore core;
    FakeSignatureManager signatureManager;

    CoreWithManager()
    {
        core.provideShared(QStringLiteral("ZTSIGNATUREMANAGER.ZtSignatureManager.1"),
                           &signatureManager);
    }
};

} // namespace

TEST_F(EntryPoints, versionSizeQueryAnswersElevenAndZero)
{
    unsigned int length = 12345;
    EXPECT_EQ(Zt_GetVersion(nullptr, &length), 0);
    EXPECT_EQ(length, 11u);
}

TEST_F(EntryPoints, versionWithABufferClearsElevenBytesAndFails)
{
    char buffer[64];
    std::memset(buffer, kUntouched, sizeof buffer);
    unsigned int length = sizeof buffer;

    EXPECT_EQ(Zt_GetVersion(buffer, &length), -1);
    EXPECT_EQ(length, 11u);
    for (int i = 0; i < 11; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(buffer[i], '\0');
    }
    for (size_t i = 11; i < sizeof buffer; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(buffer[i], kUntouched);
    }
}

TEST_F(EntryPoints, versionFailureReadsAllBitsSetAsUnsigned)
{
    char buffer[64] = {};
    unsigned int length = sizeof buffer;
    EXPECT_EQ(static_cast<unsigned int>(Zt_GetVersion(buffer, &length)), 0xFFFFFFFFu);
}

TEST_F(EntryPoints, versionWithASmallCapacityStillClearsElevenBytes)
{
    char buffer[64];
    std::memset(buffer, kUntouched, sizeof buffer);
    unsigned int length = 4;

    EXPECT_EQ(Zt_GetVersion(buffer, &length), -1);
    EXPECT_EQ(length, 11u);
    EXPECT_EQ(QByteArray(buffer, 12), QByteArray(11, '\0') + kUntouched);
}

TEST_F(EntryPoints, versionWithNothingAnswersZero)
{
    EXPECT_EQ(Zt_GetVersion(nullptr, nullptr), 0);
}

TEST_F(EntryPoints, createComponentMatchesProgIdThenClassId)
{
    CoreWithManager host;
    ComponentInit(&host.core);

    struct Row
    {
        QString progId;
        QString classId;
        bool created;
        const char *reason;
    };
    const Row rows[] = {
        {kProgId, QString(), true, "the ProgID alone"},
        {kProgId, QStringLiteral("not a class"), true, "the ProgID wins over a wrong class id"},
        {kProgId, kClassId, true, "both match"},
        {QString(), kClassId, true, "the class id alone"},
        {QStringLiteral("Other.Component.1"), kClassId, true, "the class id when the ProgID misses"},
        {QStringLiteral("crypto.ztcryptographic.1"), QString(), false, "the ProgID is case-sensitive"},
        {QStringLiteral("CRYPTO.ZTCRYPTOGRAPHIC.1"), QString(), false, "the ProgID is case-sensitive"},
        {QString(), kClassId.toLower(), false, "the class id is case-sensitive"},
        {QStringLiteral(" Crypto.ZtCryptographic.1"), QString(), false, "no trimming of the ProgID"},
        {QStringLiteral("Crypto.ZtCryptographic.2"), QString(), false, "another version"},
        {QString(), QStringLiteral("{7D19A0C4-5522-3333-9E1B84C20D57A6F0}"), false,
         "the class id is compared as plain text, braces included"},
        {QString(), QStringLiteral("7D19A0C4-5522-3333-9E1B-84C20D57A6F0"), false,
         "the usual 8-4-4-4-12 grouping is another text"},
        {kClassId, kProgId, false, "the two identifiers swapped"},
        {QString(), QString(), false, "nothing given"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        std::unique_ptr<QObject> object(CreateComponent(row.progId, row.classId));
        EXPECT_EQ(object != nullptr, row.created);
    }
}

TEST_F(EntryPoints, createdComponentIsAParentlessZtCryptographic)
{
    CoreWithManager host;
    ComponentInit(&host.core);

    std::unique_ptr<QObject> object(CreateComponent(kProgId, QString()));
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->parent(), nullptr);
    EXPECT_NE(qobject_cast<ZtCryptographic *>(object.get()), nullptr);
    EXPECT_STREQ(object->metaObject()->className(), "ZtCryptographic");
}

TEST_F(EntryPoints, everyCreateComponentMakesANewObject)
{
    CoreWithManager host;
    ComponentInit(&host.core);

    std::unique_ptr<QObject> first(CreateComponent(kProgId, QString()));
    std::unique_ptr<QObject> second(CreateComponent(QString(), kClassId));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first.get(), second.get());
}

TEST_F(EntryPoints, unknownIdentifiersCreateNothingAndPrintNothing)
{
    CoreWithManager host;
    ComponentInit(&host.core);

    StdoutCapture output;
    QObject *object = CreateComponent(QStringLiteral("crypto.ztcryptographic.1"), QString());
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(output.text(), QByteArray());
    EXPECT_TRUE(host.core.creations().isEmpty());
}

TEST_F(EntryPoints, componentInitInstallsAParentlessCoreAgent)
{
    FakeCore core;
    EXPECT_EQ(ComponentInit(&core), 1);

    ZtSignatureCoreAgent *agent = getSignatureCore();
    ASSERT_NE(agent, nullptr);
    EXPECT_EQ(agent, s_coreagent);
    EXPECT_EQ(agent->target(), &core);
    EXPECT_EQ(agent->parent(), nullptr);
    EXPECT_EQ(agent->objectName(), QStringLiteral("Agent"));
}

TEST_F(EntryPoints, componentInitWithANullCoreStillAnswersOne)
{
    EXPECT_EQ(ComponentInit(nullptr), 1);
    ASSERT_NE(getSignatureCore(), nullptr);
    EXPECT_EQ(getSignatureCore()->target(), nullptr);
    EXPECT_EQ(createComponentObject(kProgId, kClassId), nullptr);
}

TEST_F(EntryPoints, secondComponentInitReplacesWithoutDeleting)
{
    FakeCore firstCore;
    FakeCore secondCore;
    EXPECT_EQ(ComponentInit(&firstCore), 1);
    QPointer<ZtSignatureCoreAgent> first(getSignatureCore());
    ASSERT_FALSE(first.isNull());

    EXPECT_EQ(ComponentInit(&secondCore), 1);
    ZtSignatureCoreAgent *second = getSignatureCore();
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first.data());
    EXPECT_EQ(second->target(), &secondCore);
    EXPECT_FALSE(first.isNull()) << "the first agent was deleted";

    ComponentDestroy();
    EXPECT_FALSE(first.isNull()) << "ComponentDestroy reached the replaced agent";
    delete first.data(); // the library leaves it on purpose; the test cleans up after itself
}

TEST_F(EntryPoints, componentDestroyDeletesTheAgentButNotTheCore)
{
    auto core = std::make_unique<FakeCore>();
    QPointer<FakeCore> coreWatch(core.get());
    ComponentInit(core.get());
    QPointer<ZtSignatureCoreAgent> agent(getSignatureCore());

    ComponentDestroy();
    EXPECT_EQ(getSignatureCore(), nullptr);
    EXPECT_EQ(s_coreagent, nullptr);
    EXPECT_TRUE(agent.isNull());
    EXPECT_FALSE(coreWatch.isNull());
}

TEST_F(EntryPoints, componentDestroyTwiceDoesNothingTheSecondTime)
{
    FakeCore core;
    ComponentInit(&core);
    ComponentDestroy();
    ComponentDestroy();
    EXPECT_EQ(getSignatureCore(), nullptr);
}

TEST_F(EntryPoints, componentDestroyWithoutInitDoesNothing)
{
    ComponentDestroy();
    EXPECT_EQ(getSignatureCore(), nullptr);
}

TEST_F(EntryPoints, componentDestroyLeavesCreatedObjectsAlone)
{
    CoreWithManager host;
    ComponentInit(&host.core);
    std::unique_ptr<QObject> object(CreateComponent(kProgId, QString()));
    QPointer<QObject> watch(object.get());

    ComponentDestroy();
    EXPECT_FALSE(watch.isNull());
}

TEST_F(EntryPoints, createComponentObjectBeforeComponentInitTouchesNoHost)
{
    FakeCore core;
    QObject component;
    core.provideShared(kProgId, &component);

    EXPECT_EQ(createComponentObject(kProgId, kClassId), nullptr);
    EXPECT_TRUE(core.creations().isEmpty());
}

TEST_F(EntryPoints, createComponentObjectAfterComponentDestroyTouchesNoHost)
{
    FakeCore core;
    QObject component;
    core.provideShared(QStringLiteral("Some.Component.1"), &component);
    ComponentInit(&core);
    ComponentDestroy();

    EXPECT_EQ(createComponentObject(QStringLiteral("Some.Component.1"), QString()), nullptr);
    EXPECT_TRUE(core.creations().isEmpty());
}

TEST_F(EntryPoints, createComponentObjectPassesProgIdThenClassId)
{
    FakeCore core;
    QObject component;
    core.provideShared(QStringLiteral("Some.Component.1"), &component);
    ComponentInit(&core);

    EXPECT_EQ(createComponentObject(QStringLiteral("Some.Component.1"),
                                    QStringLiteral("0F1E2D3C-class")),
              &component);
    ASSERT_EQ(core.creations().size(), 1);
    EXPECT_EQ(core.creations().at(0).progId, QStringLiteral("Some.Component.1"));
    EXPECT_EQ(core.creations().at(0).classId, QStringLiteral("0F1E2D3C-class"));
}

TEST_F(EntryPoints, createComponentObjectAnswersNullWhenTheCoreRefuses)
{
    FakeCore core;
    ComponentInit(&core);

    EXPECT_EQ(createComponentObject(QStringLiteral("Unknown.Component.1"), QStringLiteral("x")),
              nullptr);
    ASSERT_EQ(core.creations().size(), 1);
    EXPECT_EQ(core.creations().at(0).progId, QStringLiteral("Unknown.Component.1"));
    EXPECT_EQ(core.creations().at(0).classId, QStringLiteral("x"));
}

TEST_F(EntryPoints, createComponentObjectLeavesTheComponentToTheHost)
{
    FakeCore core;
    auto component = std::make_unique<QObject>();
    QPointer<QObject> watch(component.get());
    core.provideShared(QStringLiteral("Some.Component.1"), component.get());
    ComponentInit(&core);

    EXPECT_EQ(createComponentObject(QStringLiteral("Some.Component.1"), QString()), watch.data());
    ComponentDestroy();
    EXPECT_FALSE(watch.isNull());
}

TEST_F(EntryPoints, signatureCoreIsNullBeforeInitTheAgentDuringAndNullAfter)
{
    EXPECT_EQ(getSignatureCore(), nullptr);

    FakeCore core;
    ComponentInit(&core);
    EXPECT_NE(getSignatureCore(), nullptr);
    EXPECT_EQ(getSignatureCore(), s_coreagent);
    EXPECT_EQ(getSignatureCore()->target(), &core);

    ComponentDestroy();
    EXPECT_EQ(getSignatureCore(), nullptr);
}
