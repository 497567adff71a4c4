// `zthost serve --service` as a process on a software key: the configured port, approved
// origins compared exactly, refusals a page's script can tell apart (4401, 4403, 1009 with the
// limit), other local users kept out in both modes, a taken port named, and `zthost origins`.

#include "bridge_client.h"
#include "serve_process.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <csignal>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <grp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString kSite = QStringLiteral("https://site.example");
const QString kUserPin = QStringLiteral("service-PIN-40417");

// A port nothing listens on right now.
quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

class ServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(serve.isValid());
        QString failure;
        ASSERT_TRUE(serve.makeKey(kUserPin, &failure)) << qPrintable(failure);
    }

    // Approves kSite, writes `port` as the service's port, and starts the service.
    void startService(quint16 port, const QStringList &extra = {})
    {
        const ServeProcess::Run added = serve.run({QStringLiteral("origins"), QStringLiteral("add"), kSite});
        ASSERT_EQ(added.exitCode, 0) << added.standardError.constData();
        {
            QSettings settings(serve.configurationFile(), QSettings::IniFormat);
            settings.setValue(QStringLiteral("bridge/port"), port);
        }
        QString failure;
        ASSERT_TRUE(serve.start(QStringList{QStringLiteral("--service")} + extra, &failure))
            << qPrintable(failure);
        ASSERT_EQ(serve.pageUrl(), QUrl(QStringLiteral("ws://127.0.0.1:%1/bridge").arg(port)));
    }

    QUrl serviceUrl() const { return serve.pageUrl(); }

    ServeProcess serve;
};

// Opens a page of `origin` on `url` and expects the bridge to close it with `code` and
// `reason` before anything it sent is processed.
void expectClosed(const QString &origin, const QUrl &url, int code, const QString &reason)
{
    BridgeClient page(origin);
    page.open(url);
    page.sendText(QStringLiteral("{\"type\":3,\"id\":1}"));
    page.send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", "WebOpenKey"}, {"args", QJsonArray()}});
    ASSERT_TRUE(page.waitForDisconnected());
    EXPECT_EQ(int(page.closeCode()), code);
    EXPECT_EQ(page.socket().closeReason(), reason);
}

// Connects to 127.0.0.1:`port` from a child process running as `nobody` and sends a request;
// answers how many bytes came back before the connection ended (-1 when the child failed).
int bytesAnsweredToNobody(quint16 port)
{
    int results[2];
    if (::pipe(results) != 0)
        return -1;
    const pid_t child = ::fork();
    if (child == 0) {
        // Only system calls from here: the child of a threaded process.
        ::close(results[0]);
        int answered = -1;
        if (::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0) {
            const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(port);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
                const char request[] = "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
                (void)::send(fd, request, sizeof request - 1, MSG_NOSIGNAL);
                answered = 0;
                char buffer[4096];
                pollfd waiting{fd, POLLIN, 0};
                while (::poll(&waiting, 1, 10'000) > 0) {
                    const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
                    if (got <= 0)
                        break;
                    answered += int(got);
                }
            }
        }
        (void)::write(results[1], &answered, sizeof answered);
        ::_exit(0);
    }
    ::close(results[1]);
    int answered = -1;
    if (child < 0 || ::read(results[0], &answered, sizeof answered) != sizeof answered)
        answered = -1;
    ::close(results[0]);
    if (child > 0)
        ::waitpid(child, nullptr, 0);
    return answered;
}

} // namespace

TEST_F(ServiceTest, listensOnTheConfiguredPortForApprovedPagesWithoutAToken)
{
    const quint16 port = freePort();
    startService(port);

    BridgeClient page(kSite);
    ASSERT_TRUE(page.open(serviceUrl()));
    const QJsonObject objects = page.initialize();
    // What a page may know before it sends anything.
    EXPECT_EQ(BridgeClient::propertyValues(objects.value(QLatin1String("bridge")).toObject()),
              (QStringList{"maxMessageBytes=16777216", "mode=service", "version=1.0.0"}));
    EXPECT_EQ(page.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_EQ(page.call(QStringLiteral("WebVerifyPin"), {kUserPin}), QJsonValue(true));
    // The same origin as the browser may write it: case and the default port do not matter.
    BridgeClient samePlace(QStringLiteral("HTTPS://Site.Example:443"));
    ASSERT_TRUE(samePlace.open(serviceUrl()));
    samePlace.initialize();
    EXPECT_EQ(samePlace.call(QStringLiteral("WebOpenKey")), QJsonValue(true));

    // No page of its own: the page comes from the site.
    EXPECT_EQ(httpRequest(port, "GET", "/").status, 404);
    EXPECT_EQ(httpRequest(port, "GET", "/page.js").status, 404);
    ASSERT_TRUE(serve.stop(SIGTERM));
    EXPECT_EQ(serve.process().exitCode(), 0);
}

TEST_F(ServiceTest, takesTheDefaultPortWhenNothingNamesOne)
{
    // Held here, so that the service's answer says which port it tried, whoever else runs one.
    QTcpServer holder;
    const bool held = holder.listen(QHostAddress::LocalHost, 19731);
    const ServeProcess::Run run = serve.run({QStringLiteral("serve"), QStringLiteral("--service"),
                                             QStringLiteral("--root"), serve.path(QStringLiteral("root"))});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.standardError.contains("zthost: cannot listen on 127.0.0.1:19731: the port is in use"))
        << run.standardError.constData();
    if (held) {
        EXPECT_TRUE(run.standardError.contains(" by process " + QByteArray::number(::getpid())))
            << run.standardError.constData();
    }
}

TEST_F(ServiceTest, refusesToStartOnATakenPortAndNamesTheProcessHoldingIt)
{
    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::LocalHost, 0));
    QFile comm(QStringLiteral("/proc/self/comm"));
    ASSERT_TRUE(comm.open(QIODevice::ReadOnly));
    const QByteArray name = comm.readAll().trimmed();
    const ServeProcess::Run run = serve.run({QStringLiteral("serve"), QStringLiteral("--service"),
                                             QStringLiteral("--port"), QString::number(holder.serverPort()),
                                             QStringLiteral("--root"), serve.path(QStringLiteral("root"))});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.standardOutput.isEmpty()) << run.standardOutput.constData();
    EXPECT_TRUE(run.standardError.endsWith("zthost: cannot listen on 127.0.0.1:" + QByteArray::number(holder.serverPort())
                                           + ": the port is in use by process " + QByteArray::number(::getpid())
                                           + " (" + name + ")\n"))
        << run.standardError.constData();
}

TEST_F(ServiceTest, closesAPageOfAnOriginNotApprovedWith4403)
{
    const quint16 port = freePort();
    startService(port);
    const struct
    {
        const char *origin;
        const char *why;
    } rows[] = {
        {"https://attacker.example", "another site"},
        {"https://site.example.attacker.example", "the approved origin as a prefix"},
        {"https://attacker.example/https://site.example", "the approved origin after it"},
        {"https://site.exampl", "a prefix of the approved origin"},
        {"http://site.example", "the same host on plain http"},
        {"https://site.example:8443", "the same host on another port"},
        {"null", "a sandboxed page"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        expectClosed(QString::fromLatin1(row.origin), serviceUrl(), 4403, QStringLiteral("origin not approved"));
    }
    expectClosed(QString(), serviceUrl(), 4403, QStringLiteral("origin not approved"));
    // The log names the origin, escaped, and says how to approve it.
    expectClosed(QStringLiteral("https://evil.example\\"), serviceUrl(), 4403,
                 QStringLiteral("origin not approved"));
    const QByteArray log = serve.hostLog();
    EXPECT_TRUE(log.contains("[warning] bridge: refused a page from origin \"https://attacker.example\": not "
                             "approved; approve it with zthost origins add https://attacker.example\n"))
        << log.constData();
    EXPECT_TRUE(log.contains("refused a page from origin \"https://evil.example\\\\\": not approved, and "
                             "not an origin the service can approve\n"))
        << log.constData();
    EXPECT_TRUE(log.contains("refused a page from origin \"null\": not approved, and not an origin the "
                             "service can approve\n"))
        << log.constData();
    EXPECT_TRUE(log.contains("refused a page that sent no origin (4403)")) << log.constData();
    // Nothing was processed: no page ever connected.
    EXPECT_FALSE(log.contains("a page connected")) << log.constData();
    ASSERT_TRUE(serve.stop(SIGTERM));
}

TEST_F(ServiceTest, closesAMessageOverTheLimitWith1009NamingTheLimit)
{
    const quint16 port = freePort();
    startService(port, {QStringLiteral("--max-message"), QStringLiteral("4096")});
    BridgeClient page(kSite);
    ASSERT_TRUE(page.open(serviceUrl()));
    page.initialize();
    EXPECT_EQ(page.call(QStringLiteral("WebZtDecode"), {QString(3000, QLatin1Char('A')), 1025}), QJsonValue("false"));
    page.send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", "WebZtDecode"},
               {"args", QJsonArray{QString(5000, QLatin1Char('A')), 1025}}});
    ASSERT_TRUE(page.waitForDisconnected());
    EXPECT_EQ(page.closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    EXPECT_EQ(page.socket().closeReason(), QStringLiteral("message too large (limit 4096 bytes)"));
    EXPECT_TRUE(serve.hostLog().contains("closed a WebSocket that sent a message over the limit of 4096 bytes (1009)"));
    ASSERT_TRUE(serve.stop(SIGTERM));
}

TEST_F(ServiceTest, refusesAConnectionFromAnotherLocalUserInBothModes)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to connect as nobody";
    const quint16 port = freePort();
    startService(port);
    // Closed before any answer, not even an HTTP error.
    EXPECT_EQ(bytesAnsweredToNobody(port), 0);
    EXPECT_TRUE(serve.hostLog().contains("[warning] bridge: refused a connection from uid 65534 (the bridge runs as uid 0)\n"))
        << serve.hostLog().constData();
    // This user's own connection is answered.
    EXPECT_EQ(httpRequest(port, "GET", "/").status, 404);
    ASSERT_TRUE(serve.stop(SIGTERM));

    ServeProcess demo;
    QString failure;
    ASSERT_TRUE(demo.start({}, &failure)) << qPrintable(failure);
    const quint16 demoPort = quint16(demo.pageUrl().port());
    EXPECT_EQ(bytesAnsweredToNobody(demoPort), 0);
    EXPECT_TRUE(demo.hostLog().contains("refused a connection from uid 65534 (the bridge runs as uid 0)"))
        << demo.hostLog().constData();
    EXPECT_EQ(httpRequest(demoPort, "GET", "/").status, 200);
    ASSERT_TRUE(demo.stop(SIGTERM));
}

TEST_F(ServiceTest, closesAPageWithAWrongTokenWith4401)
{
    QString failure;
    ASSERT_TRUE(serve.start({}, &failure)) << qPrintable(failure);
    QUrl wrong = serve.webSocketUrl();
    wrong.setQuery(QStringLiteral("token=not-the-token"));
    expectClosed(serve.origin(), wrong, 4401, QStringLiteral("token refused"));
    QUrl none = serve.webSocketUrl();
    none.setQuery(QString());
    expectClosed(serve.origin(), none, 4401, QStringLiteral("token refused"));
    EXPECT_EQ(serve.hostLog().count("refused a WebSocket without the right token (4401)"), 2);
    EXPECT_FALSE(serve.hostLog().contains("a page connected"));
    ASSERT_TRUE(serve.stop(SIGTERM));
}

TEST_F(ServiceTest, originsCommandStoresApprovesAndRefusesWithExactTexts)
{
    const auto run = [this](const QStringList &arguments) {
        return serve.run(QStringList{QStringLiteral("origins")} + arguments);
    };
    const QByteArray hint = "zthost origins: a running service takes the list as it is now from the "
                            "next page that connects.\n";
    ServeProcess::Run result = run({QStringLiteral("list")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, QByteArray());
    EXPECT_EQ(result.standardError, "zthost origins: no site is approved; approve one with zthost origins add ORIGIN\n");

    result = run({QStringLiteral("add"), QStringLiteral("HTTPS://Site.Example:443")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "approved: https://site.example\n");
    EXPECT_EQ(result.standardError, hint);
    result = run({QStringLiteral("add"), QStringLiteral("http://localhost:8080")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "approved: http://localhost:8080  (development: plain http on this machine)\n");
    result = run({QStringLiteral("add"), QStringLiteral("https://site.example")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "already approved: https://site.example\n");

    const struct
    {
        const char *origin;
        const char *message;
    } refused[] = {
        {"http://site.example",
         "zthost origins: only https origins, or http on 127.0.0.1, localhost or [::1] for development: \"http://site.example\"\n"},
        {"https://site.example/login",
         "zthost origins: not an origin (scheme://host[:port], nothing after it): \"https://site.example/login\"\n"},
        {"site.example", "zthost origins: not an origin (scheme://host[:port], nothing after it): \"site.example\"\n"},
    };
    for (const auto &row : refused) {
        SCOPED_TRACE(row.origin);
        result = run({QStringLiteral("add"), QString::fromLatin1(row.origin)});
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.standardOutput, QByteArray());
        EXPECT_EQ(result.standardError, QByteArray(row.message) + "Try 'zthost origins --help'.\n");
    }

    result = run({QStringLiteral("list")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "https://site.example\nhttp://localhost:8080  (development: plain http on this machine)\n");
    {
        QSettings settings(serve.configurationFile(), QSettings::IniFormat);
        EXPECT_EQ(settings.value(QStringLiteral("bridge/origins")).toStringList(),
                  (QStringList{"https://site.example", "http://localhost:8080"}));
    }

    result = run({QStringLiteral("remove"), QStringLiteral("https://site.example:443")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "removed: https://site.example\n");
    EXPECT_EQ(result.standardError, hint);
    result = run({QStringLiteral("remove"), QStringLiteral("https://site.example")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardError, "zthost origins: https://site.example is not approved\n");
    result = run({QStringLiteral("forget"), QStringLiteral("https://site.example")});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.standardError, "zthost origins: unknown action \"forget\": say add, list or remove\n"
                                    "Try 'zthost origins --help'.\n");
    result = run({});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.standardError, "zthost origins: say add ORIGIN, list or remove ORIGIN\nTry 'zthost origins --help'.\n");
}

TEST_F(ServiceTest, takesSitesApprovedAndRemovedWhileItRunsFromTheNextPageOn)
{
    const QString other = QStringLiteral("https://other.example");
    const quint16 port = freePort();
    startService(port);
    expectClosed(other, serviceUrl(), 4403, QStringLiteral("origin not approved"));

    ServeProcess::Run added = serve.run({QStringLiteral("origins"), QStringLiteral("add"), other});
    ASSERT_EQ(added.exitCode, 0) << added.standardError.constData();
    BridgeClient otherPage(other);
    ASSERT_TRUE(otherPage.open(serviceUrl()));
    otherPage.initialize();
    EXPECT_EQ(otherPage.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_TRUE(serve.hostLog().contains(
        "bridge: approved origins now: https://site.example, https://other.example\n"))
        << serve.hostLog().constData();

    // A page already open keeps its session; the removed site's next page is refused.
    BridgeClient sitePage(kSite);
    ASSERT_TRUE(sitePage.open(serviceUrl()));
    sitePage.initialize();
    const ServeProcess::Run removed = serve.run({QStringLiteral("origins"), QStringLiteral("remove"), kSite});
    ASSERT_EQ(removed.exitCode, 0) << removed.standardError.constData();
    expectClosed(kSite, serviceUrl(), 4403, QStringLiteral("origin not approved"));
    EXPECT_EQ(sitePage.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_TRUE(serve.hostLog().contains("bridge: approved origins now: https://other.example\n"))
        << serve.hostLog().constData();

    // A hand edit the service cannot take leaves the list as it was, and the log says why.
    {
        QSettings settings(serve.configurationFile(), QSettings::IniFormat);
        settings.setValue(QStringLiteral("bridge/origins"), QStringList{kSite, "http://site.example"});
    }
    expectClosed(kSite, serviceUrl(), 4403, QStringLiteral("origin not approved"));
    BridgeClient stillApproved(other);
    ASSERT_TRUE(stillApproved.open(serviceUrl()));
    stillApproved.initialize();
    EXPECT_EQ(stillApproved.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_TRUE(serve.hostLog().contains(
        "[warning] bridge: kept the approved origins (https://other.example): bridge/origins in "
        + serve.configurationFile().toUtf8()
        + ": only https origins, or http on 127.0.0.1, localhost or [::1] for development: "
          "\"http://site.example\" (zthost origins remove it)\n"))
        << serve.hostLog().constData();

    // Every site removed: none is let in.
    {
        QSettings settings(serve.configurationFile(), QSettings::IniFormat);
        settings.remove(QStringLiteral("bridge/origins"));
    }
    expectClosed(other, serviceUrl(), 4403, QStringLiteral("origin not approved"));
    EXPECT_TRUE(serve.hostLog().contains("bridge: approved origins now: none\n"))
        << serve.hostLog().constData();
    ASSERT_TRUE(serve.stop(SIGTERM));
}

TEST_F(ServiceTest, startedWithNoConfigurationFileTakesTheFirstSiteApproved)
{
    ASSERT_FALSE(QFile::exists(serve.configurationFile()));
    const quint16 port = freePort();
    QString failure;
    ASSERT_TRUE(serve.start({QStringLiteral("--service"), QStringLiteral("--port"), QString::number(port)},
                            &failure))
        << qPrintable(failure);
    expectClosed(kSite, serviceUrl(), 4403, QStringLiteral("origin not approved"));
    const ServeProcess::Run added = serve.run({QStringLiteral("origins"), QStringLiteral("add"), kSite});
    ASSERT_EQ(added.exitCode, 0) << added.standardError.constData();
    BridgeClient page(kSite);
    ASSERT_TRUE(page.open(serviceUrl()));
    page.initialize();
    EXPECT_EQ(page.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    ASSERT_TRUE(serve.stop(SIGTERM));
    EXPECT_TRUE(serve.standardError().contains(
        "zthost serve: no site is approved yet: approve one with zthost origins add ORIGIN; the "
        "service takes it from the next page on.\n"))
        << serve.standardError().constData();
}

TEST_F(ServiceTest, refusesToStartWithAnOriginTheServiceWouldNotTake)
{
    {
        QSettings settings(serve.configurationFile(), QSettings::IniFormat);
        settings.setValue(QStringLiteral("bridge/origins"), QStringList{"https://site.example", "http://site.example"});
        settings.setValue(QStringLiteral("bridge/port"), freePort());
    }
    const ServeProcess::Run run = serve.run({QStringLiteral("serve"), QStringLiteral("--service"),
                                             QStringLiteral("--root"), serve.path(QStringLiteral("root"))});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.standardError.endsWith(
        "zthost: bridge/origins in " + serve.configurationFile().toUtf8()
        + ": only https origins, or http on 127.0.0.1, localhost or [::1] for development: "
          "\"http://site.example\" (zthost origins remove it)\n"))
        << run.standardError.constData();
}
