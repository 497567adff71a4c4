// What keeps pages and processes away from the key: the loopback address, the page server's
// narrowness, the access token, the Origin allow-list, the client limit and the size limit.

#include "bridge_client.h"
#include "bridge_fixture.h"

#include "bridge/access_token.h"

#include <QTcpSocket>

using zthost::bridge::BridgeOptions;

TEST_F(BridgeTest, listensOnLoopbackOnly)
{
    startBridge();
    EXPECT_EQ(origin(), QStringLiteral("http://127.0.0.1:%1").arg(bridge->port()));
    EXPECT_EQ(bridge->pageUrl().host(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(bridge->pageUrl().query(), QStringLiteral("token=") + bridge->token().text());
    EXPECT_EQ(webSocketUrl().toString(),
              QStringLiteral("ws://127.0.0.1:%1/bridge?token=%2").arg(bridge->port()).arg(bridge->token().text()));
}

TEST_F(BridgeTest, servesThePageWithStrictHeaders)
{
    startBridge();
    const struct
    {
        const char *target;
        const char *contentType;
    } rows[] = {
        {"/", "text/html; charset=utf-8"},
        {"/?token=abc", "text/html; charset=utf-8"},
        {"/index.html", "text/html; charset=utf-8"},
        {"/page.js", "text/javascript; charset=utf-8"},
        {"/zt-key.js", "text/javascript; charset=utf-8"},
        {"/style.css", "text/css; charset=utf-8"},
        {"/qwebchannel.js", "text/javascript; charset=utf-8"},
        {"/favicon.svg", "image/svg+xml"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.target);
        const HttpAnswer answer = httpRequest(bridge->port(), "GET", row.target);
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.headers.value("content-type"), row.contentType);
        EXPECT_EQ(answer.headers.value("cache-control"), "no-store");
        EXPECT_EQ(answer.headers.value("x-content-type-options"), "nosniff");
        EXPECT_EQ(answer.headers.value("referrer-policy"), "no-referrer");
        const QByteArray csp = answer.headers.value("content-security-policy");
        EXPECT_TRUE(csp.startsWith("default-src 'none'; script-src 'self'")) << csp.constData();
        EXPECT_TRUE(csp.contains("connect-src ws://127.0.0.1:" + QByteArray::number(bridge->port())));
        EXPECT_TRUE(csp.contains("frame-ancestors 'none'"));
        EXPECT_FALSE(answer.body.isEmpty());
    }
    EXPECT_TRUE(httpRequest(bridge->port(), "GET", "/qwebchannel.js").body.contains("QWebChannel"));
    const HttpAnswer head = httpRequest(bridge->port(), "HEAD", "/");
    EXPECT_EQ(head.status, 200);
    EXPECT_TRUE(head.body.isEmpty());
}

TEST_F(BridgeTest, servesNothingBeyondThePage)
{
    startBridge();
    const struct
    {
        const char *method;
        const char *target;
        int status;
        const char *why;
    } rows[] = {
        {"GET", "/../CMakeLists.txt", 404, "a way out of the folder"},
        {"GET", "/%2e%2e/CMakeLists.txt", 404, "the same, percent-encoded"},
        {"GET", "/..%2fREADME.md", 404, "an encoded slash"},
        {"GET", "/web/", 404, "a folder: no listing"},
        {"GET", "/index.html/", 404, "a trailing slash"},
        {"GET", "//etc/passwd", 404, "an absolute path"},
        {"GET", "/test/page.test.mjs", 404, "a file of the folder that is not the page's"},
        {"GET", "/package.json", 404, "another file of the folder"},
        {"GET", "/bridge", 404, "the WebSocket path without an upgrade"},
        {"POST", "/", 405, "not GET"},
        {"OPTIONS", "/", 405, "no preflight"},
        {"PUT", "/index.html", 405, "no writing"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const HttpAnswer answer = httpRequest(bridge->port(), row.method, row.target);
        EXPECT_EQ(answer.status, row.status);
        EXPECT_EQ(answer.headers.value("cache-control"), "no-store");
    }
}

TEST_F(BridgeTest, answersOnlyItsOwnHostName)
{
    startBridge();
    // A page whose host name was made to resolve to 127.0.0.1 (DNS rebinding) sends its own.
    EXPECT_EQ(httpRequest(bridge->port(), "GET", "/", "attacker.example:" + QByteArray::number(bridge->port()))
                  .status,
              421);
    EXPECT_EQ(httpRequest(bridge->port(), "GET", "/", "localhost:" + QByteArray::number(bridge->port())).status,
              421);
    EXPECT_EQ(httpRequest(bridge->port(), "GET", "/", "127.0.0.1:1").status, 421);
}

TEST_F(BridgeTest, refusesAWebSocketFromAnotherOrigin)
{
    startBridge();
    const char *origins[] = {
        "http://attacker.example",
        "http://127.0.0.1:1",
        "http://localhost:%1",
        "https://127.0.0.1:%1",
        "null",
    };
    for (const char *pattern : origins) {
        const QString origin = QString::fromLatin1(pattern).arg(bridge->port());
        SCOPED_TRACE(qPrintable(origin));
        BridgeClient client(origin);
        EXPECT_FALSE(client.open(webSocketUrl()));
    }
    EXPECT_EQ(bridge->clientCount(), 0);
    EXPECT_TRUE(logText().contains(QStringLiteral("refused a WebSocket from origin \"http://attacker.example\"")));
    BridgeClient own(origin());
    EXPECT_TRUE(own.open(webSocketUrl()));
}

TEST_F(BridgeTest, acceptsAnOriginAddedToTheAllowList)
{
    BridgeOptions options;
    options.extraOrigins << QStringLiteral("http://localhost:4000");
    startBridge(options);
    BridgeClient client(QStringLiteral("http://localhost:4000"));
    EXPECT_TRUE(client.open(webSocketUrl()));
    BridgeClient other(QStringLiteral("http://localhost:4001"));
    EXPECT_FALSE(other.open(webSocketUrl()));
}

TEST_F(BridgeTest, refusesAnExtraOriginThatIsNotOne)
{
    BridgeOptions options;
    options.extraOrigins << QStringLiteral("*");
    options.webRoot = QStringLiteral(ZT_WEB_DIR);
    zthost::bridge::WebBridge refused(calls, options, nullptr);
    QString error;
    EXPECT_FALSE(refused.start(&error));
    EXPECT_TRUE(error.contains(QStringLiteral("not an origin"))) << qPrintable(error);
}

TEST_F(BridgeTest, refusesAWebSocketWithoutTheToken)
{
    startBridge();
    const QString token = bridge->token().text();
    const struct
    {
        QString token;
        const char *why;
    } rows[] = {
        {QString(), "no token"},
        {zthost::bridge::AccessToken::generate().text(), "another bridge's token"},
        {token.left(token.size() - 1), "a prefix"},
        {token + QLatin1Char('A'), "one character more"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        BridgeClient client(origin());
        // The handshake completes only for the close frame the page's script can read.
        client.open(webSocketUrlWithToken(row.token));
        client.sendText(QStringLiteral("{\"type\":3,\"id\":1}"));
        client.send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", "WebOpenKey"}, {"args", QJsonArray()}});
        EXPECT_TRUE(client.waitForDisconnected());
        EXPECT_EQ(int(client.closeCode()), 4401);
        EXPECT_EQ(client.socket().closeReason(), QStringLiteral("token refused"));
    }
    // Nothing the pages sent was processed: no object made for them, no call made.
    EXPECT_EQ(bridge->clientCount(), 0);
    EXPECT_EQ(calls.created, 0);
    EXPECT_TRUE(fake.calls.isEmpty()) << qPrintable(fake.calls.join(QLatin1Char(',')));
    EXPECT_EQ(logText().count(QStringLiteral("refused a WebSocket without the right token (4401)")), 4);
    // The right one still gets in, and no token reached the log.
    BridgeClient client(origin());
    EXPECT_TRUE(client.open(webSocketUrl()));
    EXPECT_FALSE(logText().contains(token));
}

TEST_F(BridgeTest, refusesAWebSocketOnAnotherPath)
{
    startBridge();
    QUrl url = webSocketUrl();
    url.setPath(QStringLiteral("/other"));
    BridgeClient client(origin());
    EXPECT_FALSE(client.open(url));
}

TEST_F(BridgeTest, takesAtMostMaxClients)
{
    BridgeOptions options;
    options.maxClients = 2;
    startBridge(options);
    BridgeClient first(origin());
    BridgeClient second(origin());
    ASSERT_TRUE(first.open(webSocketUrl()));
    ASSERT_TRUE(second.open(webSocketUrl()));
    ASSERT_EQ(bridge->clientCount(), 2);
    BridgeClient third(origin());
    EXPECT_FALSE(third.open(webSocketUrl()));
    EXPECT_TRUE(logText().contains(QStringLiteral("the bridge has all the clients it takes")));

    // A place freed is a place taken again.
    first.socket().close();
    ASSERT_TRUE(waitUntil([&] { return bridge->clientCount() == 1; }));
    BridgeClient fourth(origin());
    EXPECT_TRUE(fourth.open(webSocketUrl()));
    EXPECT_EQ(fourth.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
}

TEST_F(BridgeTest, closesAConnectionThatSendsAnOversizeMessage)
{
    BridgeOptions options;
    options.maxMessageBytes = 4096;
    startBridge(options);
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    client.initialize();
    client.call(QStringLiteral("WebZtDecode"), {QString(3000, 'A'), 1025});
    EXPECT_TRUE(client.isOpen());

    client.send({{"type", 6},
                 {"object", "ZtCryptographic"},
                 {"method", "WebZtDecode"},
                 {"args", QJsonArray{QString(5000, 'A'), 1025}}});
    EXPECT_TRUE(client.waitForDisconnected());
    EXPECT_EQ(client.closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    EXPECT_EQ(fake.calls.count(QStringLiteral("WebZtDecode")), 1);
    ASSERT_TRUE(waitUntil([&] { return bridge->clientCount() == 0; }));
}

TEST_F(BridgeTest, closesAConnectionThatSendsNoRequest)
{
    startBridge();
    // Not waiting the whole timeout: a head that never ends is refused once it passes 8 KiB.
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), bridge->port());
    ASSERT_TRUE(socket.waitForConnected(5000));
    socket.write("GET / HTTP/1.1\r\nX: " + QByteArray(9000, 'a'));
    QByteArray answer;
    waitUntil([&] {
        answer += socket.readAll();
        return socket.state() == QAbstractSocket::UnconnectedState;
    });
    answer += socket.readAll();
    EXPECT_TRUE(answer.startsWith("HTTP/1.1 431 ")) << answer.left(40).constData();
}
