// The agents around host components: which component each asks the core for, what an agent
// without its component prints and does, what reaches the core's logger, and who releases what.

#include "qt_printers.h"
#include "agents.h"
#include "entry_points.h"
#include "fake_core.h"
#include "fake_key_host.h"
#include "installed_core.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "signature_core.h"
#include "stdout_capture.h"
#include "zt_cryptographic.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <type_traits>

// Qt's object hooks (QtCore's qtHookData): called for every QObject made and destroyed. The
// only way to reach an agent that has neither a parent nor a public owner.
extern quintptr Q_CORE_EXPORT qtHookData[];

namespace {

static_assert(std::is_base_of<Q_ComponentLib, ZtSignatureManagerAgent>::value, "");
static_assert(std::is_base_of<Q_ComponentLib, ZtKeyAgent>::value, "");
static_assert(std::is_base_of<Q_Dispatch, Q_ComponentLib>::value, "");
static_assert(std::is_base_of<Q_Dispatch, KeyObjectAgent>::value, "");
static_assert(std::is_base_of<Q_Dispatch, ZtCertificateAgent>::value, "");
static_assert(std::is_base_of<Q_Dispatch, ZtSignatureCoreAgent>::value, "");

// One kind of agent that creates its own host component through the core.
struct SelfCreatingAgent
{
    const char *name;
    std::function<Q_Dispatch *(QObject *parent)> make;
    QString progId;
    QString classId;
};

QList<SelfCreatingAgent> selfCreatingAgents()
{
    return {
        {"ZtSignatureManagerAgent",
         [](QObject *parent) { return new ZtSignatureManagerAgent(parent); },
         QStringLiteral("ZTSIGNATUREMANAGER.ZtSignatureManager.1"),
         QStringLiteral("A3C5E761-0B2F-4D88-B613-2F97C4D1E05B")},
        {"ZtKeyAgent", [](QObject *parent) { return new ZtKeyAgent(parent); },
         QStringLiteral("ZTKEY.ZtKey.1"), QStringLiteral("5F02B9D8-61E4-4A37-9C25-D0B3E8A41F76")},
        {"ZtCertificateAgent", [](QObject *parent) { return new ZtCertificateAgent(parent); },
         QStringLiteral("ZTUTIL.ZtCerificate.1"), QString()},
    };
}

// The direct children of `parent` of type T. Agents carry no meta-object of their own, so
// QObject::findChildren cannot tell them apart.
template <typename T>
QList<T *> childrenOfType(const QObject &parent)
{
    QList<T *> found;
    for (QObject *child : parent.children()) {
        if (T *typed = dynamic_cast<T *>(child))
            found.append(typed);
    }
    return found;
}

QByteArray failLine(const QString &classId)
{
    return "createComponentObject = " + classId.toUtf8() + "  fail";
}

// Records the QObjects alive between its construction and destruction, through Qt's hooks.
class LiveObjects
{
public:
    LiveObjects()
    {
        s_live = &m_live;
        m_savedAdd = qtHookData[kAddQObject];
        m_savedRemove = qtHookData[kRemoveQObject];
        qtHookData[kAddQObject] = reinterpret_cast<quintptr>(&added);
        qtHookData[kRemoveQObject] = reinterpret_cast<quintptr>(&removed);
    }
    ~LiveObjects()
    {
        qtHookData[kAddQObject] = m_savedAdd;
        qtHookData[kRemoveQObject] = m_savedRemove;
        s_live = nullptr;
    }
    LiveObjects(const LiveObjects &) = delete;
    LiveObjects &operator=(const LiveObjects &) = delete;

    // The live objects of type T made since construction.
    template <typename T>
    QList<T *> ofType() const
    {
        QList<T *> found;
        for (QObject *object : m_live) {
            if (T *typed = dynamic_cast<T *>(object))
                found.append(typed);
        }
        return found;
    }

    bool isAlive(QObject *object) const { return m_live.contains(object); }

private:
    // Slots of qtHookData, fixed by QtCore since Qt 5.4.
    static constexpr int kAddQObject = 3;
    static constexpr int kRemoveQObject = 4;

    static void added(QObject *object) { s_live->insert(object); }
    static void removed(QObject *object) { s_live->remove(object); }

    static inline QSet<QObject *> *s_live = nullptr;
    QSet<QObject *> m_live;
    quintptr m_savedAdd = 0;
    quintptr m_savedRemove = 0;
};

class Agents : public testing::Test
{
protected:
    void SetUp() override { ComponentDestroy(); }
    void TearDown() override { ComponentDestroy(); }

    LogSandbox sandbox; // before any agent: agents read the temporary path when made
};

} // namespace

TEST_F(Agents, selfCreatingAgentsAskTheCoreForTheirIdentifiers)
{
    for (const SelfCreatingAgent &kind : selfCreatingAgents()) {
        SCOPED_TRACE(kind.name);
        FakeCore core;
        QObject component;
        core.provideShared(kind.progId, &component);
        InstalledCore installed(&core);

        StdoutCapture output;
        std::unique_ptr<Q_Dispatch> agent(kind.make(nullptr));
        EXPECT_EQ(output.text(), QByteArray());
        ASSERT_EQ(core.creations().size(), 1);
        EXPECT_EQ(core.creations().at(0).progId, kind.progId);
        EXPECT_EQ(core.creations().at(0).classId, kind.classId);
        EXPECT_EQ(agent->target(), &component);
    }
}

TEST_F(Agents, unboundAgentsPrintTheFailLineWithoutANewline)
{
    for (const SelfCreatingAgent &kind : selfCreatingAgents()) {
        SCOPED_TRACE(kind.name);
        FakeCore core; // knows no component
        InstalledCore installed(&core);

        StdoutCapture output;
        std::unique_ptr<Q_Dispatch> agent(kind.make(nullptr));
        EXPECT_EQ(output.text(), failLine(kind.classId));
        EXPECT_EQ(agent->target(), nullptr);
        EXPECT_EQ(core.creations().size(), 1);
    }
}

TEST_F(Agents, agentsMadeWithoutACorePrintTheFailLine)
{
    for (const SelfCreatingAgent &kind : selfCreatingAgents()) {
        SCOPED_TRACE(kind.name);
        StdoutCapture output;
        std::unique_ptr<Q_Dispatch> agent(kind.make(nullptr));
        EXPECT_EQ(output.text(), failLine(kind.classId));
        EXPECT_EQ(agent->target(), nullptr);
    }
}

TEST_F(Agents, unboundCertificateAgentPrintsBlankIdAndOpenLeavesFalse)
{
    FakeCore core;
    InstalledCore installed(&core);

    StdoutCapture output;
    ZtCertificateAgent agent;
    EXPECT_EQ(output.text(), QByteArray("createComponentObject =   fail"));

    const int linesBefore = sandbox.coreLogMessages().size();
    bool opened = false;
    QByteArray certificate = QByteArrayLiteral("\x30\x03\x02\x01\x07");
    agent.invokeHelper(QStringLiteral("open"), &opened, &certificate);
    EXPECT_FALSE(opened);
    EXPECT_EQ(sandbox.coreLogMessages().mid(linesBefore),
              QStringList{QStringLiteral("methodName=open")}); // no target: nothing after the name
}

TEST_F(Agents, boundCertificateAgentReachesItsComponent)
{
    FakeCore core;
    FakeCertificateComponent certificates;
    certificates.acceptAnything = true;
    core.provideShared(QStringLiteral("ZTUTIL.ZtCerificate.1"), &certificates);
    InstalledCore installed(&core);

    ZtCertificateAgent agent;
    bool opened = false;
    QByteArray certificate = QByteArrayLiteral("\x30\x03\x02\x01\x07");
    agent.invokeHelper(QStringLiteral("open"), &opened, &certificate);
    EXPECT_TRUE(opened);
    EXPECT_EQ(certificates.calls.size(), 1);
}

TEST_F(Agents, coreAgentLogDebugReachesTheCoreLogger)
{
    FakeCore core;
    InstalledCore installed(&core);

    getSignatureCore()->logDebug(QStringLiteral("[WebOpenKey:1] start  %1 密钥"));
    ASSERT_EQ(core.traces().size(), 1);
    EXPECT_EQ(core.traces().at(0).level, FakeCore::Level::Debug);
    EXPECT_EQ(core.traces().at(0).text, QStringLiteral("[WebOpenKey:1] start  %1 密钥"));
}

TEST_F(Agents, coreAgentLogErrorReachesTheCoreLogger)
{
    FakeCore core;
    InstalledCore installed(&core);

    getSignatureCore()->logError(QStringLiteral(" end, open key fail "));
    ASSERT_EQ(core.traces().size(), 1);
    EXPECT_EQ(core.traces().at(0).level, FakeCore::Level::Error);
    EXPECT_EQ(core.traces().at(0).text, QStringLiteral(" end, open key fail "));
}

TEST_F(Agents, coreAgentIsParentlessAroundTheGivenCore)
{
    FakeCore core;
    ZtSignatureCoreAgent agent(&core);
    EXPECT_EQ(agent.parent(), nullptr);
    EXPECT_EQ(agent.target(), &core);
    EXPECT_EQ(agent.objectName(), QStringLiteral("Agent"));
}

TEST_F(Agents, keyObjectAgentHasNoParentAndTheGivenTarget)
{
    ScriptedKeyObject key;
    KeyObjectAgent agent(&key);
    EXPECT_EQ(agent.parent(), nullptr);
    EXPECT_EQ(agent.target(), &key);
    EXPECT_EQ(agent.objectName(), QStringLiteral("Agent"));
}

TEST_F(Agents, selfCreatingAgentsTakeTheGivenParent)
{
    for (const SelfCreatingAgent &kind : selfCreatingAgents()) {
        SCOPED_TRACE(kind.name);
        FakeCore core;
        QObject component;
        core.provideShared(kind.progId, &component);
        InstalledCore installed(&core);

        auto parent = std::make_unique<QObject>();
        QPointer<Q_Dispatch> agent(kind.make(parent.get()));
        EXPECT_EQ(agent->parent(), parent.get());
        EXPECT_EQ(agent->objectName(), QStringLiteral("Agent"));

        parent.reset();
        EXPECT_TRUE(agent.isNull()) << "released with its parent";
    }
}

TEST_F(Agents, agentDestructionNeverDeletesTheTarget)
{
    for (const SelfCreatingAgent &kind : selfCreatingAgents()) {
        SCOPED_TRACE(kind.name);
        FakeCore core;
        auto component = std::make_unique<QObject>();
        QPointer<QObject> watch(component.get());
        core.provideShared(kind.progId, component.get());
        InstalledCore installed(&core);

        delete kind.make(nullptr);
        EXPECT_FALSE(watch.isNull());
    }

    auto key = std::make_unique<ScriptedKeyObject>();
    QPointer<QObject> keyWatch(key.get());
    delete new KeyObjectAgent(key.get());
    EXPECT_FALSE(keyWatch.isNull()) << "KeyObjectAgent";

    auto core = std::make_unique<FakeCore>();
    QPointer<QObject> coreWatch(core.get());
    delete new ZtSignatureCoreAgent(core.get());
    EXPECT_FALSE(coreWatch.isNull()) << "ZtSignatureCoreAgent";
}

TEST_F(Agents, unboundAgentCallsHaveNoEffect)
{
    StdoutCapture output; // no core: the agent prints its fail line
    ZtKeyAgent agent;
    output.text();

    int count = -1;
    agent.invokeHelper(QStringLiteral("count"), &count);
    EXPECT_EQ(count, -1);
}

TEST_F(Agents, deletingZtCryptographicDeletesOnlyItsManagerAgent)
{
    KeyHost host;
    LiveObjects live;
    auto *crypto = new ZtCryptographic;

    const QList<ZtSignatureManagerAgent *> managerAgents =
        childrenOfType<ZtSignatureManagerAgent>(*crypto);
    ASSERT_EQ(managerAgents.size(), 1);
    EXPECT_EQ(managerAgents.at(0)->target(), &host.signatureManager);
    QPointer<ZtSignatureManagerAgent> managerAgent(managerAgents.at(0));

    bool opened = false;
    ASSERT_TRUE(QMetaObject::invokeMethod(crypto, "WebOpenKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, opened)));
    ASSERT_TRUE(opened);

    const QList<ZtKeyAgent *> keyAgents = childrenOfType<ZtKeyAgent>(host.keyManager);
    ASSERT_EQ(keyAgents.size(), 1);
    EXPECT_EQ(keyAgents.at(0)->target(), &host.keyComponent);
    QPointer<ZtKeyAgent> keyAgent(keyAgents.at(0));

    const QList<KeyObjectAgent *> keyObjectAgents = live.ofType<KeyObjectAgent>();
    ASSERT_EQ(keyObjectAgents.size(), 1);
    KeyObjectAgent *keyObjectAgent = keyObjectAgents.at(0);
    EXPECT_EQ(keyObjectAgent->target(), &host.key);
    EXPECT_EQ(keyObjectAgent->parent(), nullptr);

    QPointer<QObject> managerComponent(&host.signatureManager);
    delete crypto;

    EXPECT_TRUE(managerAgent.isNull()) << "the manager agent goes with its ZtCryptographic";
    EXPECT_FALSE(managerComponent.isNull());
    EXPECT_FALSE(keyAgent.isNull()) << "the key agent belongs to the host's key manager";
    EXPECT_TRUE(live.isAlive(keyObjectAgent)) << "the key object agent is never released";

    delete keyObjectAgent; // left by the library on purpose; the test cleans up after itself
}

TEST_F(Agents, ztCryptographicBeforeComponentInitPrintsTheManagerLine)
{
    StdoutCapture output;
    auto crypto = std::make_unique<ZtCryptographic>();
    EXPECT_EQ(output.text(),
              QByteArray("createComponentObject = A3C5E761-0B2F-4D88-B613-2F97C4D1E05B  fail"));

    const QList<ZtSignatureManagerAgent *> managerAgents =
        childrenOfType<ZtSignatureManagerAgent>(*crypto);
    ASSERT_EQ(managerAgents.size(), 1);
    EXPECT_EQ(managerAgents.at(0)->target(), nullptr);
}
