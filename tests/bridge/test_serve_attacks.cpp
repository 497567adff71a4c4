// `zthost serve` against what an attacker tried: a stop while a connection is half-open, forged
// log lines, page text in the logs, answers never read, idle connections holding the door, a
// token in the wrong place, unmasked frames and oversize messages. Each test makes the attack
// on the real process, on 127.0.0.1 only, and checks the outcome the bridge now guarantees.

#include "bridge_client.h"
#include "raw_websocket.h"
#include "serve_process.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTimer>
#include <QUrlQuery>

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <vector>

namespace {

class BridgeAttackTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(serve.isValid());
        QString failure;
        ASSERT_TRUE(serve.start({}, &failure)) << qPrintable(failure);
    }

    QByteArray hostLog() const
    {
        QFile file(serve.path(QStringLiteral("host.log")));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QString token() const
    {
        return QUrlQuery(serve.pageUrl()).queryItemValue(QStringLiteral("token"));
    }

    quint16 port() const { return quint16(serve.pageUrl().port()); }

    // Every line of the host log is one record: a timestamp, a level, and no control character.
    void expectOneRecordPerLine(const QByteArray &log)
    {
        const QRegularExpression record(
            QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}\\S* \\[(debug|warning|error)\\] "));
        for (const QByteArray &line : log.split('\n')) {
            if (line.isEmpty())
                continue;
            EXPECT_TRUE(record.match(QString::fromUtf8(line)).hasMatch()) << line.constData();
            for (char c : line)
                EXPECT_FALSE(static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
                    << "control character " << int(c) << " in: " << line.toPercentEncoding().constData();
        }
    }

    bool stopCleanly(int signalNumber, const char *name)
    {
        if (!serve.stop(signalNumber))
            return false;
        EXPECT_EQ(serve.process().exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(serve.process().exitCode(), 0);
        EXPECT_TRUE(serve.standardError().contains(QByteArray("zthost serve: stopped (") + name + ")"))
            << serve.standardError().constData();
        return true;
    }

    ServeProcess serve;
};

QByteArray upgradeHead(const QByteArray &target, quint16 port)
{
    return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port)
           + "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
             "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
}

// Sends `bytes` on a fresh connection and reads until the server closes it.
QByteArray exchange(quint16 port, const QByteArray &bytes)
{
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    if (!waitUntil([&] { return socket.state() == QAbstractSocket::ConnectedState; }))
        return QByteArray();
    socket.write(bytes);
    QByteArray answer;
    waitUntil([&] {
        answer += socket.readAll();
        return socket.state() == QAbstractSocket::UnconnectedState;
    });
    return answer + socket.readAll();
}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

QJsonObject initMessage(int id)
{
    return {{"type", 3}, {"id", id}};
}

QByteArray compact(const QJsonObject &message)
{
    return QJsonDocument(message).toJson(QJsonDocument::Compact);
}

} // namespace

TEST_F(BridgeAttackTest, stopsCleanlyWhileAConnectionIsHalfOpen)
{
    for (const auto &stop : {std::make_pair(SIGTERM, "SIGTERM"), std::make_pair(SIGINT, "SIGINT")}) {
        SCOPED_TRACE(stop.second);
        ServeProcess other;
        QString failure;
        ASSERT_TRUE(other.start({}, &failure)) << qPrintable(failure);
        const quint16 otherPort = quint16(other.pageUrl().port());
        EXPECT_EQ(httpRequest(otherPort, "GET", "/").status, 200);
        QTcpSocket halfOpen;
        halfOpen.connectToHost(QStringLiteral("127.0.0.1"), otherPort);
        ASSERT_TRUE(waitUntil([&] { return halfOpen.state() == QAbstractSocket::ConnectedState; }));
        // Answered after the server took the silent connection in: connections are taken in order.
        EXPECT_EQ(httpRequest(otherPort, "GET", "/page.js").status, 200);

        ASSERT_TRUE(other.stop(stop.first));
        EXPECT_EQ(other.process().exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(other.process().exitCode(), 0);
        EXPECT_TRUE(other.standardError().contains(QByteArray("zthost serve: stopped (") + stop.second + ")"))
            << other.standardError().constData();
    }
}

TEST_F(BridgeAttackTest, logsARefusedPathEscapedOnOneLine)
{
    // What a page of another origin did with new WebSocket("ws://127.0.0.1:PORT/%0A...").
    const QByteArray forged = "/%0A2026-01-01T00:00:00.000%20[error]%20forged%0D%1B[31mred%07%00%E2%80%A8end";
    const QByteArray answer = exchange(port(), upgradeHead(forged, port()));
    EXPECT_TRUE(answer.startsWith("HTTP/1.1 404 ")) << answer.left(40).constData();

    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
    const QByteArray log = hostLog();
    EXPECT_TRUE(log.contains("refused a WebSocket upgrade for /\\n2026-01-01T00:00:00.000 [error] "
                             "forged\\r\\x1b[31mred\\x07\\x00\\u2028end\n"))
        << log.constData();
    expectOneRecordPerLine(log);
}

TEST_F(BridgeAttackTest, neverLogsTheTokenWhereverItIsPut)
{
    const QByteArray tokenBytes = token().toLatin1();
    EXPECT_TRUE(exchange(port(), upgradeHead("/bridge/" + tokenBytes, port())).startsWith("HTTP/1.1 404 "));
    EXPECT_TRUE(exchange(port(), upgradeHead("/" + tokenBytes + "?token=" + tokenBytes, port()))
                    .startsWith("HTTP/1.1 404 "));
    // Far enough into the path that a cut at 120 characters would have kept most of it.
    EXPECT_TRUE(exchange(port(), upgradeHead("/" + QByteArray(100, 'a') + tokenBytes, port()))
                    .startsWith("HTTP/1.1 404 "));
    EXPECT_TRUE(exchange(port(), "GET / HTTP/1.1\r\nHost: " + tokenBytes + "\r\n\r\n").startsWith("HTTP/1.1 421 "));
    BridgeClient foreign(QStringLiteral("http://") + token() + QStringLiteral(".example"));
    EXPECT_FALSE(foreign.open(serve.webSocketUrl()));

    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
    // Standard output carries the printed address, token and all; every log is what is left.
    const QByteArray logs = serve.allLogs().replace(serve.standardOutput(), QByteArray());
    EXPECT_FALSE(logs.contains(tokenBytes)) << logs.constData();
    EXPECT_FALSE(logs.contains(tokenBytes.left(20))) << logs.constData();
    EXPECT_TRUE(hostLog().contains("refused a WebSocket upgrade for /bridge/<token>\n")) << hostLog().constData();
    EXPECT_TRUE(hostLog().contains("refused a request for host \"<token>\"")) << hostLog().constData();
}

TEST_F(BridgeAttackTest, keepsThePagesMessageTextOutOfEveryLog)
{
    const QString marker = QStringLiteral("page-text-7f3a");
    BridgeClient page(serve.origin());
    ASSERT_TRUE(page.open(serve.webSocketUrl()));
    // An init without an id, 200 KB of it: Qt printed it whole.
    page.sendText(QString::fromUtf8(compact({{"type", 3}, {"filler", marker.repeated(14'000)}})));
    // A fractional type naming an object: Qt read it as no type it knows and printed the name.
    page.sendText(QString::fromUtf8(compact({{"type", 3.5}, {"object", marker}, {"id", 1}})));
    page.sendText(QString::fromUtf8(compact({{"type", 3}, {"id", 2}, {"object", marker}})));
    page.sendText(QString::fromUtf8(compact({{"type", 4}, {"data", marker}})));
    page.sendText(QString::fromUtf8(compact({{"type", 6}, {"object", "ZtCryptographic"},
                                             {"method", "WebGetLastErrorMsg"}, {"args", QJsonArray()},
                                             {"id", 3}, {"note", marker}})));
    page.sendText(QStringLiteral("{\"type\":3,\"id\":1.5,\"x\":\"%1\"}").arg(marker));
    // The well-formed handshake still gets its answer.
    EXPECT_TRUE(page.initialize().contains(QStringLiteral("ZtCryptographic")));
    EXPECT_TRUE(page.isOpen());

    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
    const QByteArray logs = serve.allLogs();
    EXPECT_FALSE(logs.contains(marker.toUtf8())) << logs.right(3000).constData();
    EXPECT_LT(hostLog().size(), 16 * 1024);
    EXPECT_TRUE(hostLog().contains("bridge: dropped a handshake that is not {type, id}")) << hostLog().constData();
    EXPECT_TRUE(hostLog().contains("bridge: dropped a message without a whole-number type"));
    EXPECT_TRUE(hostLog().contains("bridge: dropped a call with fields the channel does not use"));
    expectOneRecordPerLine(hostLog());
}

TEST_F(BridgeAttackTest, closesAPageThatDoesNotReadItsAnswers)
{
    RawWebSocket greedy;
    ASSERT_TRUE(greedy.open(serve.webSocketUrl(), serve.origin()));
    const qint64 before = residentBytes(serve.process().processId());
    // 250,000 handshakes, never read: about half a KiB of answer each.
    greedy.socket().setReadBufferSize(4096);
    QByteArray burst;
    for (int id = 0; id < 250'000; ++id)
        burst += RawWebSocket::frame(0x1, compact(initMessage(id)));
    greedy.send(burst);
    const QByteArray closedLine = "closed a WebSocket whose page left 64 answers";
    ASSERT_TRUE(waitUntil([&] { return hostLog().contains(closedLine); }, 120'000)) << hostLog().right(2000).constData();
    const qint64 after = residentBytes(serve.process().processId());
    std::printf("unread answers: server VmRSS %lld KiB before, %lld KiB once closed\n",
                before / 1024, after / 1024);
    // The sanitizers hold freed memory back on purpose: the figure means nothing there.
    if (!kSanitized)
        EXPECT_LT(after - before, qint64(16) * 1024 * 1024);

    // The close frame (1008) follows the answers, but a page still sending when it is closed
    // gets a reset from the system, which drops what it had not read: only the end is certain.
    greedy.socket().setReadBufferSize(0);
    greedy.closeCodeAtEnd();
    EXPECT_EQ(greedy.socket().state(), QAbstractSocket::UnconnectedState);
    EXPECT_EQ(hostLog().count(closedLine), 1);

    // The next page is served.
    BridgeClient next(serve.origin());
    ASSERT_TRUE(next.open(serve.webSocketUrl()));
    EXPECT_TRUE(next.initialize().contains(QStringLiteral("ZtCryptographic")));
    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
}

TEST_F(BridgeAttackTest, letsAPageInWhileIdleConnectionsHoldTheDoor)
{
    // 100 connections that send nothing, each opened again as soon as the server drops it:
    // before, 32 of them kept every page out.
    constexpr int kIdle = 100;
    std::vector<std::unique_ptr<QTcpSocket>> idle;
    int connects = 0;
    const auto openIdle = [&](std::unique_ptr<QTcpSocket> &socket) {
        socket = std::make_unique<QTcpSocket>();
        QObject::connect(socket.get(), &QTcpSocket::connected, [&connects] { ++connects; });
        socket->connectToHost(QStringLiteral("127.0.0.1"), port());
    };
    for (int i = 0; i < kIdle; ++i) {
        idle.emplace_back();
        openIdle(idle.back());
    }
    int renewed = 0;
    QTimer renew;
    QObject::connect(&renew, &QTimer::timeout, [&] {
        for (auto &socket : idle) {
            if (socket->state() == QAbstractSocket::UnconnectedState) {
                openIdle(socket);
                ++renewed;
            }
        }
    });
    renew.start(20);
    // Held past the head timeout, so that each was dropped and opened again at least once.
    ASSERT_TRUE(waitUntil([&] { return connects >= kIdle && renewed >= kIdle; }, 30'000));

    // The page's whole road: its file, its WebSocket, the channel's handshake. Generous: a
    // page takes milliseconds; before, it never got in at all.
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(httpRequest(port(), "GET", "/").status, 200);
    BridgeClient page(serve.origin());
    ASSERT_TRUE(page.open(serve.webSocketUrl()));
    EXPECT_TRUE(page.initialize().contains(QStringLiteral("ZtCryptographic")));
    const qint64 elapsed = clock.elapsed();
    std::printf("idle connections: the page got in after %lld ms, %d idle connections renewed\n",
                elapsed, renewed);
    EXPECT_LT(elapsed, 1000);
    renew.stop();
    idle.clear();
    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
}

TEST_F(BridgeAttackTest, makesRoomByClosingTheOldestIdleConnection)
{
    // More idle connections than the server keeps waiting: each newcomer closes the oldest.
    constexpr int kIdle = 300;
    std::vector<std::unique_ptr<QTcpSocket>> idle;
    for (int i = 0; i < kIdle; ++i) {
        idle.push_back(std::make_unique<QTcpSocket>());
        idle.back()->connectToHost(QStringLiteral("127.0.0.1"), port());
    }
    const QByteArray evicted = "closed the oldest of 256 connections still sending their requests";
    ASSERT_TRUE(waitUntil([&] { return hostLog().count(evicted) == kIdle - 256; }, 30'000))
        << hostLog().right(1000).constData();
    const auto closed = [&] {
        int count = 0;
        for (const auto &socket : idle)
            count += socket->state() == QAbstractSocket::UnconnectedState ? 1 : 0;
        return count;
    };
    EXPECT_TRUE(waitUntil([&] { return closed() == kIdle - 256; })) << closed() << " closed";
    // The newest stays.
    EXPECT_EQ(idle.back()->state(), QAbstractSocket::ConnectedState);
    EXPECT_EQ(httpRequest(port(), "GET", "/").status, 200);
    idle.clear();
    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
}

TEST_F(BridgeAttackTest, closesAMessageOverTheDefaultLimit)
{
    BridgeClient page(serve.origin());
    ASSERT_TRUE(page.open(serve.webSocketUrl()));
    page.initialize();
    // 16 MiB is the default: an envelope of 12 MiB of content in Base64.
    page.send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", "WebZtDecode"},
               {"args", QJsonArray{QString(16 * 1024 * 1024, QLatin1Char('A')), 1025}}});
    EXPECT_TRUE(page.waitForDisconnected());
    EXPECT_EQ(page.closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
}

TEST_F(BridgeAttackTest, verboseHelpSaysLogsCarryEnvelopeMaterial)
{
    QByteArray help;
    QString failure;
    ASSERT_TRUE(serve.runTool({QStringLiteral("serve"), QStringLiteral("--help")}, &help, &failure))
        << qPrintable(failure);
    const QString text = QString::fromUtf8(help).simplified();
    EXPECT_TRUE(text.contains(QStringLiteral("They carry envelope material (an envelope's encrypted key "
                                             "and content, as hex): keep such logs private.")))
        << help.constData();
    EXPECT_TRUE(text.contains(QStringLiteral("(default 16777216: an envelope of 12 MiB)"))) << help.constData();
    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
}

TEST_F(BridgeAttackTest, closesAConnectionThatSendsAnUnmaskedFrame)
{
    RawWebSocket bare;
    ASSERT_TRUE(bare.open(serve.webSocketUrl(), serve.origin()));
    // A masked message first, so that the unmasked one is found in the middle of a stream.
    bare.send(RawWebSocket::frame(0x1, compact(initMessage(1))));
    bare.send(RawWebSocket::frame(0x1, compact(initMessage(2)), false));
    EXPECT_EQ(bare.closeCodeAtEnd(), int(QWebSocketProtocol::CloseCodeProtocolError));
    EXPECT_EQ(bare.socket().state(), QAbstractSocket::UnconnectedState);
    const QByteArray closedLine = "closed a WebSocket that sent an unmasked frame";
    ASSERT_TRUE(waitUntil([&] { return hostLog().contains(closedLine); })) << hostLog().constData();
    EXPECT_EQ(hostLog().count(closedLine), 1);

    // Sent with the upgrade, before its answer: the close frame follows the answer.
    const QByteArray head = upgradeHead("/bridge?token=" + token().toUtf8(), port()).chopped(2)
                            + "Origin: " + serve.origin().toUtf8() + "\r\n\r\n";
    const QByteArray early = exchange(port(), head + RawWebSocket::frame(0x1, "{}", false));
    EXPECT_TRUE(early.startsWith("HTTP/1.1 101 ")) << early.constData();
    EXPECT_TRUE(early.endsWith(QByteArray("\x88\x02\x03\xea", 4))) << early.toHex().constData();
    ASSERT_TRUE(waitUntil([&] { return hostLog().count(closedLine) == 2; })) << hostLog().constData();

    // Masked frames on another connection, pipelined and one large, still go through.
    RawWebSocket masked;
    ASSERT_TRUE(masked.open(serve.webSocketUrl(), serve.origin()));
    QByteArray pipelined;
    for (int id = 10; id < 20; ++id)
        pipelined += RawWebSocket::frame(0x1, compact(initMessage(id)));
    // Lengths in 16 and in 64 bits; the gate drops both, what follows must still be read.
    pipelined += RawWebSocket::frame(
        0x1, compact({{"type", 3}, {"id", 19}, {"filler", QString(1'000, QLatin1Char('f'))}}));
    pipelined += RawWebSocket::frame(
        0x1, compact({{"type", 3}, {"id", 20}, {"filler", QString(300'000, QLatin1Char('f'))}}));
    pipelined += RawWebSocket::frame(0x1, compact(initMessage(21)));
    masked.send(pipelined);
    QByteArray answers;
    EXPECT_TRUE(waitUntil([&] {
        answers += masked.socket().readAll();
        return answers.contains("\"id\":21");
    })) << answers.right(300).constData();
    EXPECT_TRUE(answers.contains("\"id\":10"));
    EXPECT_EQ(masked.socket().state(), QAbstractSocket::ConnectedState);

    BridgeClient page(serve.origin());
    ASSERT_TRUE(page.open(serve.webSocketUrl()));
    EXPECT_TRUE(page.initialize().contains(QStringLiteral("ZtCryptographic")));
    ASSERT_TRUE(stopCleanly(SIGTERM, "SIGTERM"));
    expectOneRecordPerLine(hostLog());
}
