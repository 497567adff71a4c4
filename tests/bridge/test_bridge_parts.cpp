// The bridge's parts on their own: the access token, the origin allow-list, the request head
// parser, the message gate, the frame tracker, the origins a user may approve and the filter
// of Qt's channel warnings.

#include "bridge/access_token.h"
#include "bridge/approved_origin.h"
#include "bridge/channel_warnings.h"
#include "bridge/frame_tracker.h"
#include "bridge/http_request_head.h"
#include "bridge/message_gate.h"
#include "bridge/origin_allow_list.h"
#include "bridge/scriptable_facade.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <utility>

using namespace zthost::bridge;

TEST(AccessToken, isLongUrlSafeAndFreshEachTime)
{
    const AccessToken first = AccessToken::generate();
    const AccessToken second = AccessToken::generate();
    // 256 bits in unpadded Base64url.
    EXPECT_EQ(first.text().size(), 43);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^[A-Za-z0-9_-]+$")).match(first.text()).hasMatch());
    EXPECT_NE(first.text(), second.text());
}

TEST(AccessToken, matchesOnlyItself)
{
    const AccessToken token = AccessToken::fromText(QStringLiteral("abcDEF123_-"));
    EXPECT_TRUE(token.matches(QStringLiteral("abcDEF123_-")));
    const struct
    {
        const char *candidate;
        const char *why;
    } refused[] = {
        {"", "no token at all"},
        {"abcDEF123_", "a prefix"},
        {"abcDEF123_-x", "one character more"},
        {"abcdef123_-", "another case"},
        {"abcDEF123_+", "last character changed"},
    };
    for (const auto &row : refused) {
        SCOPED_TRACE(row.why);
        EXPECT_FALSE(token.matches(QString::fromLatin1(row.candidate)));
    }
    EXPECT_FALSE(AccessToken::fromText(QString()).matches(QString()));
}

TEST(OriginAllowList, normalisesOrigins)
{
    const struct
    {
        const char *origin;
        const char *normalised;
        const char *why;
    } rows[] = {
        {"http://127.0.0.1:8080", "http://127.0.0.1:8080", "as browsers send it"},
        {"HTTP://LocalHost:8080", "http://localhost:8080", "scheme and host in lower case"},
        {"http://127.0.0.1:80", "http://127.0.0.1", "the default port dropped"},
        {"https://example.test:443", "https://example.test", "the default port of https dropped"},
        {"http://127.0.0.1:8080/", "http://127.0.0.1:8080", "a bare slash is no path"},
        {"null", "", "sandboxed and file: pages send null"},
        {"", "", "empty"},
        {"file:///tmp/page.html", "", "not an http origin"},
        {"http://127.0.0.1:8080/page", "", "a path is not an origin"},
        {"http://user@127.0.0.1:8080", "", "user info is not an origin"},
        {"ws://127.0.0.1:8080", "", "a WebSocket address is not a page's origin"},
        {"http://[::1]:8080", "http://[::1]:8080", "an IPv6 host keeps its brackets"},
        {"HTTP://[::1]:80", "http://[::1]", "an IPv6 host with the default port"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(OriginAllowList::normalise(QString::fromLatin1(row.origin)),
                  QString::fromLatin1(row.normalised));
    }
}

TEST(OriginAllowList, allowsOnlyWhatWasAdded)
{
    OriginAllowList list;
    ASSERT_TRUE(list.add(QStringLiteral("http://127.0.0.1:4000")));
    QString error;
    EXPECT_FALSE(list.add(QStringLiteral("null"), &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(list.allows(QStringLiteral("http://127.0.0.1:4000")));
    EXPECT_FALSE(list.allows(QStringLiteral("http://127.0.0.1:4001")));
    EXPECT_FALSE(list.allows(QStringLiteral("http://localhost:4000")));
    EXPECT_FALSE(list.allows(QStringLiteral("https://127.0.0.1:4000")));
    EXPECT_FALSE(list.allows(QStringLiteral("null")));
    EXPECT_FALSE(list.allows(QString()));
}

TEST(HttpRequestHead, readsAWebSocketUpgrade)
{
    HttpRequestHead head;
    ASSERT_EQ(HttpRequestHead::parse("GET /bridge?token=a%2Bb HTTP/1.1\r\n"
                                     "Host: 127.0.0.1:5000\r\n"
                                     "Upgrade: WebSocket\r\n"
                                     "Connection: keep-alive, Upgrade\r\n\r\n",
                                     &head),
              HttpRequestHead::Parse::Complete);
    EXPECT_EQ(head.method, "GET");
    EXPECT_EQ(head.path, QStringLiteral("/bridge"));
    EXPECT_EQ(head.query.queryItemValue(QStringLiteral("token"), QUrl::FullyDecoded),
              QStringLiteral("a+b"));
    EXPECT_EQ(head.header("host"), "127.0.0.1:5000");
    EXPECT_TRUE(head.isWebSocketUpgrade());
}

TEST(HttpRequestHead, refusesWhatIsNotARequestHead)
{
    const struct
    {
        QByteArray bytes;
        HttpRequestHead::Parse expected;
        const char *why;
    } rows[] = {
        {"GET / HTTP/1.1\r\nHost: x\r\n", HttpRequestHead::Parse::Incomplete, "no blank line yet"},
        {"GET / HTTP/1.1\r\n" + QByteArray(9000, 'a'), HttpRequestHead::Parse::TooLarge,
         "more than 8 KiB without an end"},
        {"GET / HTTP/1.1\r\nX: " + QByteArray(9000, 'a') + "\r\n\r\n",
         HttpRequestHead::Parse::TooLarge, "a whole head over 8 KiB"},
        {"GET http://evil.test/ HTTP/1.1\r\n\r\n", HttpRequestHead::Parse::Malformed,
         "an absolute target"},
        {"GET / SPDY/3\r\n\r\n", HttpRequestHead::Parse::Malformed, "not HTTP/1.x"},
        {"GET  / HTTP/1.1\r\n\r\n", HttpRequestHead::Parse::Malformed, "an empty field"},
        {"GET / HTTP/1.1\r\nno colon here\r\n\r\n", HttpRequestHead::Parse::Malformed,
         "a header line without a colon"},
        {"GET / HTTP/1.1\r\n: value\r\n\r\n", HttpRequestHead::Parse::Malformed,
         "a header without a name"},
        {QByteArray("GET /a\0b HTTP/1.1\r\n\r\n", 22), HttpRequestHead::Parse::Malformed,
         "a NUL in the target"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        HttpRequestHead head;
        EXPECT_EQ(HttpRequestHead::parse(row.bytes, &head), row.expected);
    }
}

namespace {

MessageGate facadeGate(int maxArgumentChars = 16)
{
    return MessageGate(&ScriptableFacade::staticMetaObject, QStringLiteral("ZtCryptographic"),
                       ScriptableFacade::methodNames(), maxArgumentChars);
}

QJsonObject invoke(const QJsonValue &method, const QJsonArray &args,
                   const QString &object = QStringLiteral("ZtCryptographic"))
{
    return {{"type", 6}, {"object", object}, {"method", method}, {"args", args}, {"id", 7}};
}

int indexOf(const char *signature)
{
    return ScriptableFacade::staticMetaObject.indexOfMethod(signature);
}

} // namespace

TEST(MessageGate, forwardsTheChannelHandshakeAndWellFormedCalls)
{
    const MessageGate gate = facadeGate();
    const struct
    {
        QJsonObject message;
        const char *why;
    } rows[] = {
        {{{"type", 3}, {"id", 0}}, "init"},
        {{{"type", 4}}, "idle"},
        {invoke("WebOpenKey", {}), "by name"},
        {invoke(indexOf("WebOpenKey()"), {}), "by index"},
        {invoke("WebVerifyPin", {"1234"}), "a string argument"},
        {invoke("WebZtDecode", {"", 1025}), "an empty string and a number"},
        {invoke("WebZtDecode", {"abc", 9007199254740992.0}), "2^53, the largest exact number"},
        {invoke("WebZtEncode", {"abc", "def", 0}), "three arguments"},
        {invoke("WebGetCertData", {QString(16, 'x')}), "a string at the limit"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(gate.judge(row.message).kind, MessageGate::Verdict::Kind::Forward);
    }
}

TEST(MessageGate, dropsWhatPagesMayNotSend)
{
    const MessageGate gate = facadeGate();
    const struct
    {
        QJsonObject message;
        const char *why;
    } rows[] = {
        {{}, "no type"},
        {{{"type", "6"}}, "a type that is not a number"},
        {{{"type", 5}, {"data", "secret"}}, "debug, which Qt prints"},
        {{{"type", 9}, {"object", "ZtCryptographic"}, {"property", 0}, {"value", "renamed"}},
         "setting objectName"},
        {{{"type", 7}, {"object", "ZtCryptographic"}, {"signal", indexOf("destroyed()")}},
         "connecting to a signal"},
        {{{"type", 8}, {"object", "ZtCryptographic"}, {"signal", indexOf("destroyed()")}},
         "disconnecting from a signal"},
        {{{"type", 10}, {"id", 1}, {"data", true}}, "a response"},
        {invoke("deleteLater", {}), "deleteLater by name"},
        {invoke(indexOf("deleteLater()"), {}), "deleteLater by index"},
        {invoke(indexOf("destroyed()"), {}), "a signal by index"},
        {invoke("objectNameChanged", {"x"}), "a signal by name"},
        {invoke("WebOpenKey()", {}), "a signature where a name belongs"},
        {invoke(-1, {}), "a negative index"},
        {invoke(1.5, {}), "a fractional index"},
        {invoke(1e12, {}), "an index past any method"},
        {invoke(QJsonValue(), {}), "no method"},
        {invoke("WebOpenKey", {}, QStringLiteral("transport")), "another object"},
        {invoke("WebOpenKey", {}, QString()), "no object"},
        {{{"type", 6}, {"object", "ZtCryptographic"}, {"method", "WebOpenKey"}, {"args", QJsonArray()}},
         "a call without an id"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const MessageGate::Verdict verdict = gate.judge(row.message);
        EXPECT_EQ(verdict.kind, MessageGate::Verdict::Kind::Drop);
        EXPECT_FALSE(verdict.reason.isEmpty());
    }
}

TEST(MessageGate, answersBadArgumentsWithTheMethodsFailureValue)
{
    const MessageGate gate = facadeGate();
    const QString pin = QStringLiteral("pin-9731");
    const struct
    {
        QJsonObject message;
        QJsonValue failure;
        const char *why;
    } rows[] = {
        {invoke("WebVerifyPin", {1234}), false, "a number for a PIN"},
        {invoke("WebVerifyPin", {QJsonObject{{"pin", pin}}}), false, "an object for a PIN"},
        {invoke("WebVerifyPin", {QJsonValue(QJsonArray{pin})}), false, "an array for a PIN"},
        {invoke("WebVerifyPin", {QJsonValue()}), false, "null for a PIN"},
        {invoke("WebVerifyPin", {}), false, "no PIN"},
        {invoke("WebVerifyPin", {pin, pin}), false, "one argument too many"},
        {invoke("WebOpenKey", {pin}), false, "an argument where none is taken"},
        {invoke("WebGetCertData", {QString(17, 'x')}), "false", "a string over the limit"},
        {invoke("WebZtDecode", {"abc", "0x401"}), "false", "a string for the algorithm"},
        {invoke("WebZtDecode", {"abc", -1}), "false", "a negative algorithm"},
        {invoke("WebZtDecode", {"abc", 1.5}), "false", "a fractional algorithm"},
        {invoke("WebZtDecode", {"abc", 1e300}), "false", "an algorithm past 2^53"},
        {invoke("WebZtDecode", {true, 1025}), "false", "a bool for the envelope"},
        {invoke("WebZtEncode", {"a", "b"}), "false", "a missing algorithm"},
        {{{"type", 6}, {"object", "ZtCryptographic"}, {"method", "WebOpenKey"}, {"id", 7}},
         false, "no argument array"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const MessageGate::Verdict verdict = gate.judge(row.message);
        ASSERT_EQ(verdict.kind, MessageGate::Verdict::Kind::Answer);
        EXPECT_EQ(verdict.answer.value(QLatin1String("type")).toInt(), MessageGate::Response);
        EXPECT_EQ(verdict.answer.value(QLatin1String("id")).toInt(), 7);
        EXPECT_EQ(verdict.answer.value(QLatin1String("data")), row.failure);
        // The reason goes to the log: it never quotes an argument.
        EXPECT_FALSE(verdict.reason.contains(pin)) << qPrintable(verdict.reason);
    }
}

TEST(ChannelWarnings, turnsQtsChannelWarningsIntoOneFixedLine)
{
    QStringList notes;
    {
        const ChannelWarnings warnings([&notes](const QString &line) { notes << line; });
        // How Qt 5.15's channel words them, page text included.
        qWarning("JSON message object is missing the id property: %s", "{\"pin\":\"page-secret\"}");
        qWarning() << "Unknown object encountered" << QStringLiteral("page-secret");
    }
    const QString line = QStringLiteral("Qt's web channel refused a page's message (its text is not logged)");
    EXPECT_EQ(notes, (QStringList{line, line}));
    EXPECT_TRUE(ChannelWarnings::isChannelMessage("qt.webchannel", QStringLiteral("anything")));
    EXPECT_FALSE(ChannelWarnings::isChannelMessage("default", QStringLiteral("[WebOpenKey:57] start ")));
}

namespace {

// A frame header as a client writes it, with a mask key when `masked`; `lengthBytes` 0, 2 or 8
// picks the length's form.
QByteArray frameHeader(quint64 length, bool masked, int lengthBytes)
{
    QByteArray header(1, char(0x81));
    const char mask = masked ? char(0x80) : char(0);
    if (lengthBytes == 0) {
        header += char(mask | char(length));
    } else {
        header += char(mask | (lengthBytes == 2 ? 126 : 127));
        for (int shift = (lengthBytes - 1) * 8; shift >= 0; shift -= 8)
            header += char((length >> shift) & 0xff);
    }
    if (masked)
        header += QByteArray("\x12\x34\x56\x78", 4);
    return header;
}

// Follows `stream` in pieces of `piece` bytes; the bytes taken in all.
qint64 followInPieces(FrameTracker &tracker, const QByteArray &stream, int piece)
{
    qint64 taken = 0;
    for (int at = 0; at < stream.size(); at += piece) {
        const int size = qMin(piece, stream.size() - at);
        const qint64 step = tracker.follow(stream.constData() + at, size);
        taken += step;
        if (step < size)
            break;
    }
    return taken;
}

} // namespace

TEST(FrameTracker, followsMaskedFramesOfEveryLengthInAnyPieces)
{
    QByteArray stream;
    for (const auto &[length, lengthBytes] : {std::pair<quint64, int>{0, 0}, {125, 0}, {126, 2},
                                             {70'000, 8}, {5, 2}, {3, 8}})
        stream += frameHeader(length, true, lengthBytes) + QByteArray(int(length), 'x');
    for (int piece : {1, 2, 3, 7, 64, 100'000}) {
        FrameTracker tracker(true);
        EXPECT_EQ(followInPieces(tracker, stream, piece), stream.size()) << piece;
        EXPECT_EQ(tracker.fault(), FrameTracker::Fault::None) << piece;
        EXPECT_TRUE(tracker.atFrameBoundary()) << piece;
    }
}

TEST(FrameTracker, stopsAtTheFirstUnmaskedHeaderWhereverItFalls)
{
    const QByteArray good = frameHeader(300, true, 2) + QByteArray(300, char(0x80));
    // The bad header's length byte looks like a mask bit would in the good frame's payload.
    const QByteArray stream = good + frameHeader(4, false, 0) + "abcd" + frameHeader(1, true, 0) + "z";
    for (int piece : {1, 5, 301, 100'000}) {
        FrameTracker tracker(true);
        EXPECT_EQ(followInPieces(tracker, stream, piece), good.size() + 1) << piece;
        EXPECT_EQ(tracker.fault(), FrameTracker::Fault::Unmasked) << piece;
        // A fault is final.
        EXPECT_EQ(tracker.follow(good.constData(), good.size()), 0);
    }
}

TEST(FrameTracker, refusesALengthWithItsTopBitSet)
{
    FrameTracker tracker(true);
    const QByteArray header = frameHeader(quint64(1) << 63, true, 8);
    EXPECT_EQ(tracker.follow(header.constData(), header.size()), 2);
    EXPECT_EQ(tracker.fault(), FrameTracker::Fault::LengthTooLarge);

    // The largest length there may be is followed, not refused.
    FrameTracker largest(true);
    const QByteArray most = frameHeader((quint64(1) << 63) - 1, true, 8) + "payload";
    EXPECT_EQ(largest.follow(most.constData(), most.size()), most.size());
    EXPECT_EQ(largest.fault(), FrameTracker::Fault::None);
    EXPECT_FALSE(largest.atFrameBoundary());
}

TEST(FrameTracker, followsAServersUnmaskedFramesToTheEndOfTheOneInProgress)
{
    const QByteArray first = frameHeader(200, false, 2) + QByteArray(200, 'a');
    const QByteArray stream = first + frameHeader(3, false, 0) + "bcd";
    FrameTracker tracker(false);
    EXPECT_EQ(tracker.follow(stream.constData(), 10), 10);
    EXPECT_FALSE(tracker.atFrameBoundary());
    EXPECT_EQ(tracker.follow(stream.constData() + 10, stream.size() - 10, true), first.size() - 10);
    EXPECT_TRUE(tracker.atFrameBoundary());
    EXPECT_EQ(tracker.follow(stream.constData() + first.size(), 5, true), 0);
    EXPECT_EQ(tracker.fault(), FrameTracker::Fault::None);
}

namespace {

// A masked client frame with `firstByte` (FIN and opcode) and `length` bytes of payload.
QByteArray frame(char firstByte, int length)
{
    QByteArray bytes = frameHeader(quint64(length), true, length < 126 ? 0 : 2) + QByteArray(length, 'x');
    bytes[0] = firstByte;
    return bytes;
}

constexpr char kTextWhole = char(0x81);
constexpr char kTextFirst = char(0x01);
constexpr char kContinuationLast = char(0x80);
constexpr char kPing = char(0x89);

} // namespace

TEST(FrameTracker, refusesTheFrameThatTakesAMessagePastTheLimit)
{
    // A message of exactly the limit passes, and the next message counts from nothing.
    const QByteArray atLimit = frame(kTextWhole, 300) + frame(kTextWhole, 300);
    FrameTracker fits(true, 300);
    EXPECT_EQ(fits.follow(atLimit.constData(), atLimit.size()), atLimit.size());
    EXPECT_EQ(fits.fault(), FrameTracker::Fault::None);

    // One byte more: found at the header's length, before any of its payload is passed on.
    const QByteArray over = frame(kTextWhole, 301);
    for (int piece : {1, 3, 100'000}) {
        FrameTracker tracker(true, 300);
        EXPECT_LT(followInPieces(tracker, atLimit.left(300 + 8) + over, piece), 300 + 8 + 4) << piece;
        EXPECT_EQ(tracker.fault(), FrameTracker::Fault::MessageTooLarge) << piece;
    }
}

TEST(FrameTracker, addsAMessagesFramesButNotTheControlFramesBetweenThem)
{
    // 60 + 40 = 100 bytes of message, with a ping of 100 between: within a limit of 100.
    const QByteArray fits = frame(kTextFirst, 60) + frame(kPing, 100) + frame(kContinuationLast, 40);
    FrameTracker tracker(true, 100);
    EXPECT_EQ(tracker.follow(fits.constData(), fits.size()), fits.size());
    EXPECT_EQ(tracker.fault(), FrameTracker::Fault::None);

    const QByteArray over = frame(kTextFirst, 60) + frame(kPing, 10) + frame(kContinuationLast, 41);
    FrameTracker refusing(true, 100);
    EXPECT_LT(refusing.follow(over.constData(), over.size()), over.size() - 41);
    EXPECT_EQ(refusing.fault(), FrameTracker::Fault::MessageTooLarge);
}

TEST(ApprovedOrigin, takesHttpsAndLoopbackHttpOnly)
{
    const struct
    {
        const char *text;
        const char *origin;  // empty: refused
        ApprovedOrigin::Kind kind;
        const char *why;
    } rows[] = {
        {"https://site.example", "https://site.example", ApprovedOrigin::Kind::Https, "a site"},
        {"HTTPS://Site.Example:443", "https://site.example", ApprovedOrigin::Kind::Https, "normalised"},
        {"https://site.example:8443", "https://site.example:8443", ApprovedOrigin::Kind::Https, "its own port kept"},
        {"http://127.0.0.1:8080", "http://127.0.0.1:8080", ApprovedOrigin::Kind::LoopbackHttp, "development"},
        {"http://localhost:3000", "http://localhost:3000", ApprovedOrigin::Kind::LoopbackHttp, "development"},
        {"http://[::1]:8080", "http://[::1]:8080", ApprovedOrigin::Kind::LoopbackHttp, "development, IPv6"},
        {"http://site.example", "", ApprovedOrigin::Kind::Https, "plain http from the network"},
        {"http://localhost.site.example", "", ApprovedOrigin::Kind::Https, "a loopback name as a prefix"},
        {"https://site.example/", "https://site.example", ApprovedOrigin::Kind::Https, "a bare slash"},
        {"https://site.example/app", "", ApprovedOrigin::Kind::Https, "a path"},
        {" https://site.example", "", ApprovedOrigin::Kind::Https, "blanks around it"},
        {"site.example", "", ApprovedOrigin::Kind::Https, "no scheme"},
        {"null", "", ApprovedOrigin::Kind::Https, "the origin of sandboxed pages"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        ApprovedOrigin parsed;
        QString error;
        const bool taken = ApprovedOrigin::parse(QString::fromLatin1(row.text), &parsed, &error);
        EXPECT_EQ(taken, *row.origin != '\0') << qPrintable(error);
        if (taken) {
            EXPECT_EQ(parsed.origin, QString::fromLatin1(row.origin));
            EXPECT_EQ(parsed.kind, row.kind);
        }
    }
    ApprovedOrigin parsed;
    QString error;
    EXPECT_FALSE(ApprovedOrigin::parse(QStringLiteral("http://site.example"), &parsed, &error));
    EXPECT_EQ(error, QStringLiteral("only https origins, or http on 127.0.0.1, localhost or [::1] "
                                    "for development: \"http://site.example\""));
    EXPECT_FALSE(ApprovedOrigin::parse(QStringLiteral("https://site.example/app"), &parsed, &error));
    EXPECT_EQ(error, QStringLiteral("not an origin (scheme://host[:port], nothing after it): "
                                    "\"https://site.example/app\""));
}
