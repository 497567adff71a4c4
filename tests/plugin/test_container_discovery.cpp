// Container discovery: GetContainer called directly with a key-object agent around a scripted
// key. Which container it hands back, which it opens and closes again on the way, where it
// stops, the error code it leaves and the trace it writes.

#include "error_probe.h"
#include "qt_printers.h"
#include "agents.h"
#include "crypto_error.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "zt_cryptographic.h"

#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <ostream>

namespace {

constexpr int kSm2 = 2;
constexpr int kRsa = 1;

ScriptedKeyObject::Container container(const char *name, qulonglong handle, int type)
{
    ScriptedKeyObject::Container c;
    c.name = QString::fromLatin1(name);
    c.handle = handle;
    c.type = type;
    return c;
}

// One test's world: the log sandbox first, a key host whose core receives the trace, the object
// whose GetContainer is under test, and an agent around the host's key, with records cleared.
struct Discovery
{
    LogSandbox logs;
    KeyHost host;
    ZtCryptographic crypto;
    KeyObjectAgent agent{&host.key};

    Discovery() { host.core.clearRecords(); }

    QStringList trace() const { return host.core.traceLines({"GetContainer"}); }
};

} // namespace

TEST(ContainerDiscovery, nullAgentFailsWithNoKeyDevice)
{
    Discovery d;
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(d.crypto.GetContainer(nullptr, kSm2), 0u);
    EXPECT_EQ(currentErrorMessage(), QStringLiteral("未检测到电子密钥盘"));
    EXPECT_EQ(d.trace(), (QStringList{"D [GetContainer:#]start",
                                      "D [GetContainer:#] userKey is NULL "}));
    EXPECT_EQ(d.host.key.calls, QStringList());
}

TEST(ContainerDiscovery, agentWithoutTargetFailsWithNoKeyDevice)
{
    Discovery d;
    KeyObjectAgent unbound(nullptr);
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(d.crypto.GetContainer(&unbound, kSm2), 0u);
    EXPECT_EQ(currentErrorMessage(), QStringLiteral("未检测到电子密钥盘"));
    EXPECT_EQ(d.trace(), (QStringList{"D [GetContainer:#]start",
                                      "D [GetContainer:#] userKey is NULL "}));
}

TEST(ContainerDiscovery, emptyContainerListFailsWithNoCertificateContainer)
{
    Discovery d;
    d.host.key.containers.clear(); // the key itself answers every call
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(d.crypto.GetContainer(&d.agent, kSm2), 0u);
    EXPECT_EQ(currentErrorMessage(), QStringLiteral("key的证书容器为空"));
    EXPECT_EQ(d.trace(), (QStringList{"D [GetContainer:#]start",
                                      "D [GetContainer:#] get container count = 0 "}));
    EXPECT_EQ(d.host.key.calls, QStringList{"enumContainer()"});
}

TEST(ContainerDiscovery, containerThatDoesNotOpenStopsTheSearch)
{
    Discovery d;
    d.host.key.containers = {container("broken", 0, kSm2), container("enc", 0x21, kSm2)};
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(d.crypto.GetContainer(&d.agent, kSm2), 0u);
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
    EXPECT_EQ(d.host.key.calls, (QStringList{"enumContainer()", "openContainer(broken)"}));
    EXPECT_EQ(d.host.key.openHandles, QList<qulonglong>());
    EXPECT_EQ(d.trace(), (QStringList{"D [GetContainer:#]start",
                                      "D [GetContainer:#] userKey openContainer fail "}));
}

TEST(ContainerDiscovery, firstContainerOfTheTypeWinsAndEarlierOnesAreClosed)
{
    Discovery d;
    d.host.key.containers = {container("rsa", 0x11, kRsa), container("first", 0x21, kSm2),
                             container("second", 0x31, kSm2)};
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(d.crypto.GetContainer(&d.agent, kSm2), 0x21u);
    EXPECT_EQ(d.host.key.calls,
              (QStringList{"enumContainer()", "openContainer(rsa)", "getContainerType(17)",
                           "closeContainer(17)", "openContainer(first)", "getContainerType(33)"}));
    EXPECT_EQ(d.host.key.openHandles, QList<qulonglong>{0x21}); // left open for the caller
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(ContainerDiscovery, successTracesStartAndEnd)
{
    Discovery d;
    EXPECT_EQ(d.crypto.GetContainer(&d.agent, kSm2), KeyHost::kSm2Handle);
    EXPECT_EQ(d.trace(), (QStringList{"D [GetContainer:#]start", "D [GetContainer:#] end "}));
}

TEST(ContainerDiscovery, requestedTypeDecidesTheMatch)
{
    Discovery d;
    d.host.key.containers = {container("enc", 0x21, kSm2), container("rsa", 0x11, kRsa)};
    EXPECT_EQ(d.crypto.GetContainer(&d.agent, kRsa), 0x11u);
    EXPECT_EQ(d.host.key.calls,
              (QStringList{"enumContainer()", "openContainer(enc)", "getContainerType(33)",
                           "closeContainer(33)", "openContainer(rsa)", "getContainerType(17)"}));
    EXPECT_EQ(d.host.key.openHandles, QList<qulonglong>{0x11});
}

TEST(ContainerDiscovery, onlyNonMatchingContainersYieldZeroAndAreAllClosed)
{
    Discovery d;
    d.host.key.containers = {container("rsa1", 0x11, kRsa), container("rsa2", 0x12, kRsa)};
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_EQ(d.crypto.GetContainer(&d.agent, kSm2), 0u);
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
    EXPECT_EQ(d.host.key.calls,
              (QStringList{"enumContainer()", "openContainer(rsa1)", "getContainerType(17)",
                           "closeContainer(17)", "openContainer(rsa2)", "getContainerType(18)",
                           "closeContainer(18)"}));
    EXPECT_EQ(d.host.key.openHandles, QList<qulonglong>());
    EXPECT_EQ(d.trace(), QStringList{"D [GetContainer:#]start"});
}

TEST(ContainerDiscovery, firstTraceIsStartWithoutBlanks)
{
    Discovery d;
    d.crypto.GetContainer(&d.agent, kSm2);
    ASSERT_FALSE(d.host.core.traces().isEmpty());
    const FakeCore::Trace &first = d.host.core.traces().first();
    EXPECT_EQ(first.level, FakeCore::Level::Debug);
    const QRegularExpression form(QStringLiteral("^\\[GetContainer:[1-9][0-9]*\\]start$"));
    EXPECT_TRUE(form.match(first.text).hasMatch()) << first.text.toStdString();
}
