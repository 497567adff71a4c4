// `zthost serve` under load, on a software key: four pages pipelining a thousand mixed calls
// while bad messages, oversize messages, connection storms and a burst beyond --max-clients
// come in between. Every well-formed call must get its exact answer, the server must still
// serve a fresh page afterwards, its resident memory must grow by no more than the library's
// deliberate leaks, and SIGTERM must stop it cleanly. All traffic goes to the 127.0.0.1 port of
// the server this test starts; every wait is bounded by one deadline for the whole run.

#include "bridge_client.h"
#include "openssl_envelope.h"
#include "serve_process.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QSet>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

namespace {

const QString kUserPin = QStringLiteral("load-PIN-40317");
const QString kWrongPin = QStringLiteral("load-WRONG-88120");
const QString kWrongPinMessage = QStringLiteral("您输入的电子钥匙盘密码错误，请重新输入!");
const QString kObject = QStringLiteral("ZtCryptographic");
constexpr qulonglong kSm4Ecb = 0x401;
constexpr int kInvokeMethod = 6;
constexpr int kResponse = 10;

// The whole test, start-up included, fails rather than waits past this.
constexpr int kDeadlineMs = 90'000;

// Four pages, 250 well-formed calls each: 1,000 in all.
constexpr int kClients = 4;
constexpr int kCallsPerClient = 250;
// Answers each page waits for at once; the bridge serves one call at a time, so deeper queues
// only sit in its socket buffers.
constexpr int kPipelineDepth = 4;
// After every kCallsPerFault well-formed calls a page sends one bad message: 25 per page.
constexpr int kCallsPerFault = 10;
// Connections opened and dropped during the run, paced by its progress.
constexpr int kStormConnections = 50;
// Storm connections after which a page sends a message over --max-message.
const QSet<int> kOversizeRounds = {10, 25, 40};

// Room for the four pages and one storm or oversize connection at a time; the burst after the
// run asks for kBurstExtra more than this.
constexpr int kMaxClients = 6;
constexpr int kBurstExtra = 3;
// Small enough that a few MiB over it is quick to send, large enough that the 1 MiB envelopes
// (1.4 MB of Base64) pass.
constexpr qint64 kMaxMessageBytes = qint64(4) * 1024 * 1024;
constexpr int kLargeContentBytes = 1024 * 1024;
constexpr int kSmallEnvelopes = 16;
constexpr int kLargeEnvelopes = 2;

// The plug-in keeps every ASN.1 block agent it obtains: 12 per WebZtDecode, 606 bytes each as
// measured by the growth benchmark (README, Performance). The other methods of the mixed run
// keep nothing.
constexpr qint64 kDecodeLeakBytes = 12 * 606;
// glibc's default starting mmap threshold, held fixed for the server (see SetUp).
constexpr int kMmapThresholdBytes = 128 * 1024;
// What the server's resident memory may grow beyond those leaks; see the test's last part.
// Measured since every WebSocket goes through the frame relay (its read buffers come and go with
// the storm's connections): from 0.66 MiB below the leaks to 0.72 MiB above them on a quiet
// machine, 1.5 MiB above with two builds running beside it. The rest is page granularity, the
// heap top glibc keeps below its trim threshold and the arenas of Qt's threads; a leak of 2 KiB
// per call beyond the deliberate ones would still show.
constexpr qint64 kRssSlackBytes = qint64(2) * 1024 * 1024;

// One call of the mixed run, after the page's own WebOpenKey and WebVerifyPin (each page has a
// scriptable object of its own). WebOpenKey and WebCloseKey are not among them: opening the key
// again starts a new session on the page's object, and its next decode would fail until the PIN
// is verified again. WebVerifyPin with the right PIN is safe to repeat.
enum class CallKind { Decode, VerifyPin, CertData, Encode, LastError };

// One block of 25 well-formed calls, repeated ten times per page: decodes the most, as a page
// that reads mail would, and WebVerifyPin the least, since each costs the device a PBKDF2.
const CallKind kCallPattern[] = {
    CallKind::Decode,    CallKind::CertData,  CallKind::Decode,   CallKind::Encode,
    CallKind::LastError, CallKind::Decode,    CallKind::VerifyPin, CallKind::CertData,
    CallKind::Decode,    CallKind::Encode,    CallKind::Decode,   CallKind::LastError,
    CallKind::CertData,  CallKind::Decode,    CallKind::Encode,   CallKind::VerifyPin,
    CallKind::Decode,    CallKind::LastError, CallKind::CertData, CallKind::Decode,
    CallKind::Encode,    CallKind::CertData,  CallKind::VerifyPin, CallKind::LastError,
    CallKind::Decode,
};
constexpr int kPatternLength = int(sizeof(kCallPattern) / sizeof(kCallPattern[0]));
static_assert(kCallsPerClient % kPatternLength == 0, "whole blocks per page");

// Positions (call index within a page) of the page's 1 MiB decodes, in place of small ones.
const QSet<int> kLargeDecodeAt = {60, 191};

QJsonObject invoke(const QString &method, const QJsonArray &args, const QString &object = kObject)
{
    return {{"type", kInvokeMethod}, {"object", object}, {"method", method}, {"args", args}};
}

// What the test knows about the device and the envelopes made for it.
struct Material
{
    QString certificateText; // Base64 of the DER, as WebGetCertData answers it
    QByteArray certificateDer;
    struct Envelope
    {
        QString text;   // Base64 of the envelope
        QString answer; // Base64 of its content: what WebZtDecode must answer
    };
    std::vector<Envelope> small;
    std::vector<Envelope> large;
};

// One message a load page sends, and what must come back.
struct Step
{
    enum class Expect { Exact, NoAnswer };
    QString label;
    QString text; // the whole message
    int id = 0;   // 0: the message has none
    Expect expect = Expect::Exact;
    QJsonValue answer;
};

// A page that keeps up to kPipelineDepth calls in flight, sending the next step as each
// answer arrives. Runs on signals alone, so that it makes progress while the test's own code
// waits on the event loop for something else.
class LoadPage
{
public:
    LoadPage(const QString &origin, int number) : m_client(origin), m_number(number) {}

    bool open(const QUrl &url)
    {
        if (!m_client.open(url))
            return false;
        m_client.initialize();
        QObject::connect(&m_client.socket(), &QWebSocket::textMessageReceived,
                         [this](const QString &text) { receive(text); });
        return m_client.isOpen();
    }

    // Appends a step; ids are this page's own, counting up in sending order.
    void add(Step step, bool withId = true)
    {
        if (withId) {
            QJsonObject message = QJsonDocument::fromJson(step.text.toUtf8()).object();
            step.id = m_nextId++;
            message.insert(QStringLiteral("id"), step.id);
            step.text = QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact));
        }
        m_steps.push_back(std::move(step));
    }

    void start() { pump(); }
    bool isDone() const { return m_sent == int(m_steps.size()) && m_waiting.isEmpty(); }
    int answered() const { return m_answered; }
    bool isOpen() const { return m_client.isOpen(); }
    BridgeClient &client() { return m_client; }
    const QStringList &failures() const { return m_failures; }

    // Calls a step sent and never answered, once the page is done: what the gate dropped.
    QStringList answeredDrops() const { return m_answeredDrops; }

private:
    void pump()
    {
        while (m_sent < int(m_steps.size()) && m_waiting.size() < kPipelineDepth
               && m_client.isOpen()) {
            const Step &step = m_steps.at(m_sent++);
            m_client.socket().sendTextMessage(step.text);
            if (step.expect != Step::Expect::NoAnswer)
                m_waiting.insert(step.id, &step);
            else if (step.id != 0)
                m_dropped.insert(step.id, &step);
        }
        m_client.socket().flush();
    }

    void receive(const QString &text)
    {
        const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
        if (message.value(QLatin1String("type")).toInt() != kResponse)
            return;
        const int id = message.value(QLatin1String("id")).toInt();
        const QJsonValue data = message.value(QLatin1String("data"));
        // The bridge serves a page's calls one at a time, in the order they came.
        if (id <= m_lastAnsweredId)
            fail(QStringLiteral("answer to id %1 after the answer to id %2").arg(id).arg(m_lastAnsweredId));
        m_lastAnsweredId = id;
        if (const Step *dropped = m_dropped.value(id)) {
            m_answeredDrops << dropped->label;
            return;
        }
        const Step *step = m_waiting.take(id);
        if (!step) {
            fail(QStringLiteral("an answer to id %1, which was not asked").arg(id));
            return;
        }
        ++m_answered;
        if (data != step->answer)
            fail(QStringLiteral("%1 (id %2) answered %3 characters \"%4\"")
                     .arg(step->label)
                     .arg(id)
                     .arg(data.toString().size())
                     .arg(data.toVariant().toString().left(60)));
        pump();
    }

    void fail(const QString &what)
    {
        m_failures << QStringLiteral("page %1: %2").arg(m_number).arg(what);
    }

    BridgeClient m_client;
    int m_number;
    int m_nextId = 100; // past the ids the handshake used
    std::vector<Step> m_steps;
    int m_sent = 0;
    int m_answered = 0;
    int m_lastAnsweredId = 0;
    QHash<int, const Step *> m_waiting;
    QHash<int, const Step *> m_dropped;
    QStringList m_failures;
    QStringList m_answeredDrops;
};

class BridgeLoadTest : public ::testing::Test
{
protected:
    int remainingMs() const { return int(qMax<qint64>(0, m_deadline.remainingTime())); }

    void SetUp() override
    {
        ASSERT_TRUE(serve.isValid());
        QByteArray output;
        QString failure;
        ASSERT_TRUE(serve.runTool({QStringLiteral("keygen"), QStringLiteral("--name"),
                                   QLatin1String(ServeProcess::kDevice), QStringLiteral("--pin"),
                                   kUserPin, QStringLiteral("--admin-pin"),
                                   QStringLiteral("load-admin-5521")},
                                  &output, &failure))
            << qPrintable(failure);
        ASSERT_TRUE(serve.runTool({QStringLiteral("cert"), QStringLiteral("--out"),
                                   serve.path(QStringLiteral("cert.b64"))},
                                  &output, &failure))
            << qPrintable(failure);
        QFile certificate(serve.path(QStringLiteral("cert.b64")));
        ASSERT_TRUE(certificate.open(QIODevice::ReadOnly));
        material.certificateText = QString::fromLatin1(certificate.readAll().trimmed());
        material.certificateDer = QByteArray::fromBase64(material.certificateText.toLatin1());
        ASSERT_FALSE(material.certificateDer.isEmpty());

        // Contents of 1 to 1,921 bytes, each envelope made by OpenSSL for the device's key.
        for (int i = 0; i < kSmallEnvelopes; ++i)
            addEnvelope(&material.small, randomBytes(1 + i * 128));
        for (int i = 0; i < kLargeEnvelopes; ++i)
            addEnvelope(&material.large, randomBytes(kLargeContentBytes));

        // glibc raises its mmap threshold as big blocks are freed, after which the buffers of
        // the 1 MiB envelopes come from the heap and how much of it stays resident depends on
        // how the calls happened to overlap. A fixed threshold keeps those buffers mapped on
        // their own and returned when freed, so VmRSS follows what the server holds. The
        // server inherits it from here; this process's allocator is set up already.
        qputenv("MALLOC_MMAP_THRESHOLD_", QByteArray::number(kMmapThresholdBytes));
        const bool started =
            serve.start({QStringLiteral("--max-clients"), QString::number(kMaxClients),
                         QStringLiteral("--max-message"), QString::number(kMaxMessageBytes)},
                        &failure);
        qunsetenv("MALLOC_MMAP_THRESHOLD_");
        ASSERT_TRUE(started) << qPrintable(failure);
    }

    void addEnvelope(std::vector<Material::Envelope> *into, const QByteArray &content)
    {
        // Whole coordinates only (makeEnvelopeWithOpenSsl sees to it): the plug-in cannot read a
        // short one back, and this test is about the bridge.
        const QByteArray envelope = makeEnvelopeWithOpenSsl(material.certificateDer, content);
        ASSERT_FALSE(envelope.isEmpty());
        into->push_back({QString::fromLatin1(envelope.toBase64()),
                         QString::fromLatin1(content.toBase64())});
    }

    bool waitFor(const std::function<bool()> &done, int capMs = kDeadlineMs)
    {
        return waitUntil(done, qMin(capMs, remainingMs()));
    }

    // The server's resident memory once it has answered a fresh page: by then it has handled
    // every earlier close and deleted what those connections held.
    qint64 settledResidentBytes()
    {
        // The pages just closed may still hold their places for a moment (the server lets a
        // page go after its socket's last signal), and a probe then is refused as one too many.
        std::unique_ptr<BridgeClient> probe;
        const bool opened = waitFor([&] {
            probe = std::make_unique<BridgeClient>(serve.origin());
            return probe->open(serve.webSocketUrl());
        }, 10'000);
        if (!opened)
            return -1;
        probe->initialize();
        // A fresh page has no failure of its own.
        if (probe->call(QStringLiteral("WebGetLastErrorMsg")) != QJsonValue(QString(QLatin1String(""))))
            return -1;
        const qint64 bytes = residentBytes(serve.process().processId());
        probe->socket().close();
        probe->waitForDisconnected();
        return bytes;
    }

    // A page that sends one message over --max-message must be closed with 1009, and a new
    // page must get in at once and be served.
    void oversizeRound()
    {
        BridgeClient oversize(serve.origin());
        ASSERT_TRUE(oversize.open(serve.webSocketUrl()));
        oversize.initialize();
        oversize.send(invoke(QStringLiteral("WebZtDecode"),
                             {QString(int(kMaxMessageBytes) + 1024, QLatin1Char('A')), double(kSm4Ecb)}));
        ASSERT_TRUE(waitFor([&] { return !oversize.isOpen(); }, 20'000));
        EXPECT_EQ(oversize.closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
        ++oversizeClosed;

        BridgeClient next(serve.origin());
        ASSERT_TRUE(next.open(serve.webSocketUrl()));
        next.initialize();
        EXPECT_EQ(next.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
        EXPECT_EQ(next.call(QStringLiteral("WebGetCertData"), {"1"}), QJsonValue(material.certificateText));
        next.socket().close();
        next.waitForDisconnected();
    }

    // Connection `index` of a storm: opened, then dropped at one of five moments.
    void stormConnection(int index)
    {
        BridgeClient page(serve.origin());
        ASSERT_TRUE(page.open(serve.webSocketUrl())) << "storm connection " << index;
        const Material::Envelope &envelope = material.small.at(size_t(index) % material.small.size());
        switch (index % 5) {
        case 0: // before the channel's handshake
            page.socket().abort();
            return;
        case 1: // after it, politely
            page.initialize();
            page.socket().close();
            page.waitForDisconnected();
            return;
        case 2: // in the middle of a decode
            page.initialize();
            page.send(invoke(QStringLiteral("WebZtDecode"), {envelope.text, double(kSm4Ecb)}));
            page.socket().abort();
            ++stormDecodes;
            return;
        case 3: // in the middle of a PIN check, the slowest call the device makes
            page.initialize();
            page.send(invoke(QStringLiteral("WebVerifyPin"), {kUserPin}));
            page.socket().abort();
            return;
        default: // after a decode's answer, on a key this page opened itself
            page.initialize();
            EXPECT_EQ(page.call(QStringLiteral("WebOpenKey")), QJsonValue(true)) << "storm connection " << index;
            EXPECT_EQ(page.call(QStringLiteral("WebVerifyPin"), {kUserPin}), QJsonValue(true))
                << "storm connection " << index;
            ++stormDecodes;
            EXPECT_EQ(page.call(QStringLiteral("WebZtDecode"), {envelope.text, double(kSm4Ecb)}),
                      QJsonValue(envelope.answer))
                << "storm connection " << index;
            page.socket().abort();
            return;
        }
    }

    // What a set of load pages was given.
    struct Counts
    {
        int calls = 0;
        int decodes = 0;
        int largeDecodes = 0;
        int faults = 0;
        int faultsAnswered = 0;
        // Each page's WebOpenKey and WebVerifyPin before its calls.
        int sessionCalls = 0;
    };

    // The steps of load page `number`: `calls` well-formed calls, 1 MiB decodes at the
    // positions `largeAt`, and a bad message after every kCallsPerFault calls.
    void plan(LoadPage *page, int number, int calls, const QSet<int> &largeAt, Counts *counts)
    {
        // The page's own session first: its object has no key open yet.
        page->add({QStringLiteral("WebOpenKey"), toText(invoke(QStringLiteral("WebOpenKey"), {})), 0,
                   Step::Expect::Exact, true});
        page->add({QStringLiteral("WebVerifyPin"), toText(invoke(QStringLiteral("WebVerifyPin"), {kUserPin})), 0,
                   Step::Expect::Exact, true});
        counts->sessionCalls += 2;
        for (int i = 0; i < calls; ++i) {
            const CallKind kind = kCallPattern[i % kPatternLength];
            Step step;
            switch (kind) {
            case CallKind::Decode: {
                const bool large = largeAt.contains(i);
                counts->largeDecodes += large ? 1 : 0;
                const Material::Envelope &envelope =
                    large ? material.large.at(size_t(number) % material.large.size())
                          : material.small.at(size_t(i + number) % material.small.size());
                step = {large ? QStringLiteral("WebZtDecode of 1 MiB") : QStringLiteral("WebZtDecode"),
                        {}, 0, Step::Expect::Exact, envelope.answer};
                step.text = toText(invoke(QStringLiteral("WebZtDecode"), {envelope.text, double(kSm4Ecb)}));
                ++counts->decodes;
                break;
            }
            case CallKind::VerifyPin:
                step = {QStringLiteral("WebVerifyPin"),
                        toText(invoke(QStringLiteral("WebVerifyPin"), {kUserPin})), 0,
                        Step::Expect::Exact, true};
                break;
            case CallKind::CertData:
                step = {QStringLiteral("WebGetCertData"),
                        toText(invoke(QStringLiteral("WebGetCertData"), {"1"})), 0,
                        Step::Expect::Exact, material.certificateText};
                break;
            case CallKind::Encode: {
                // The plug-in's WebZtEncode only checks that the certificate decodes, and then
                // answers an empty text.
                const QByteArray content = QByteArray("page ") + QByteArray::number(number)
                                           + " call " + QByteArray::number(i);
                step = {QStringLiteral("WebZtEncode"),
                        toText(invoke(QStringLiteral("WebZtEncode"),
                                      {QString::fromLatin1(content.toBase64()),
                                       material.certificateText, double(kSm4Ecb)})),
                        0, Step::Expect::Exact, QString(QLatin1String(""))};
                break;
            }
            case CallKind::LastError:
                // The page's own last failure: none, since none of its calls fails (the
                // warm-up page's wrong PIN is that page's alone).
                step = {QStringLiteral("WebGetLastErrorMsg"),
                        toText(invoke(QStringLiteral("WebGetLastErrorMsg"), {})), 0,
                        Step::Expect::Exact, QString(QLatin1String(""))};
                break;
            }
            page->add(std::move(step));
            ++counts->calls;
            if ((i + 1) % kCallsPerFault == 0)
                addFault(page, (i / kCallsPerFault + number) % faultCount(), counts);
        }
    }

    // Bad messages, one row per fault with what the gate does about it today: a call of an
    // allowed method with bad arguments gets that method's failure value; anything else is
    // dropped unanswered.
    struct Fault
    {
        const char *reason;
        QString text;
        bool hasId;
        std::optional<QJsonValue> answer; // nothing: dropped
    };
    std::vector<Fault> faults() const
    {
        const QString envelope = material.small.front().text;
        return {
            {"truncated JSON", QStringLiteral("{\"type\":6,\"object\":\"ZtCryptographic\",\"meth"),
             false, std::nullopt},
            {"a JSON array, not an object", QStringLiteral("[6,\"WebOpenKey\"]"), false, std::nullopt},
            {"not JSON at all", QStringLiteral("WebOpenKey()"), false, std::nullopt},
            {"QObject's deleteLater", toText(invoke(QStringLiteral("deleteLater"), {})), true,
             std::nullopt},
            {"a method nobody declared", toText(invoke(QStringLiteral("WebFormatKey"), {})), true,
             std::nullopt},
            {"an object nobody published",
             toText(invoke(QStringLiteral("WebOpenKey"), {}, QStringLiteral("QWebChannel"))), true,
             std::nullopt},
            {"a property write (objectName)",
             toText({{"type", 9}, {"object", kObject}, {"property", 0}, {"value", "renamed"}}), true,
             std::nullopt},
            {"a PIN as a number", toText(invoke(QStringLiteral("WebVerifyPin"), {40317})), true,
             QJsonValue(false)},
            {"an algorithm as text",
             toText(invoke(QStringLiteral("WebZtDecode"), {envelope, QStringLiteral("1025")})), true,
             QJsonValue(QStringLiteral("false"))},
            {"a negative algorithm", toText(invoke(QStringLiteral("WebZtDecode"), {envelope, -1025})),
             true, QJsonValue(QStringLiteral("false"))},
            {"a missing argument", toText(invoke(QStringLiteral("WebGetCertData"), {})), true,
             QJsonValue(QStringLiteral("false"))},
            {"an argument too many", toText(invoke(QStringLiteral("WebOpenKey"), {1})), true,
             QJsonValue(false)},
            {"arguments that are not an array",
             toText({{"type", kInvokeMethod}, {"object", kObject}, {"method", "WebGetLastErrorMsg"},
                     {"args", "none"}}),
             true, QJsonValue(QStringLiteral("false"))},
        };
    }
    int faultCount() const { return int(faults().size()); }

    void addFault(LoadPage *page, int index, Counts *counts)
    {
        const Fault fault = faults().at(size_t(index));
        Step step{QStringLiteral("bad message: %1").arg(QLatin1String(fault.reason)), fault.text, 0,
                  fault.answer ? Step::Expect::Exact : Step::Expect::NoAnswer,
                  fault.answer.value_or(QJsonValue())};
        page->add(std::move(step), fault.hasId);
        ++counts->faults;
        if (fault.answer)
            ++counts->faultsAnswered;
    }

    // The mixed run: four load pages, with storm connections and oversize messages paced by
    // their progress. The pages stay open afterwards (in m_pages).
    void mixedRun(int callsPerPage, const QSet<int> &largeAt, Counts *counts)
    {
        m_pages.clear();
        const int oversizeBefore = oversizeClosed;
        for (int number = 0; number < kClients; ++number) {
            m_pages.push_back(std::make_unique<LoadPage>(serve.origin(), number));
            plan(m_pages.back().get(), number, callsPerPage, largeAt, counts);
            ASSERT_TRUE(m_pages.back()->open(serve.webSocketUrl())) << "load page " << number;
        }
        for (auto &page : m_pages)
            page->start();
        const auto answered = [&] {
            int total = 0;
            for (const auto &page : m_pages)
                total += page->answered();
            return total;
        };
        const int totalAnswers = counts->calls + counts->faultsAnswered + counts->sessionCalls;
        for (int storm = 0; storm < kStormConnections; ++storm) {
            // Spread over the run: connection N waits for N/50 of the answers.
            ASSERT_TRUE(waitFor([&] { return answered() >= totalAnswers * storm / kStormConnections; }))
                << "stalled at " << answered() << " answers of " << totalAnswers;
            if (kOversizeRounds.contains(storm)) {
                ASSERT_NO_FATAL_FAILURE(oversizeRound());
            }
            ASSERT_NO_FATAL_FAILURE(stormConnection(storm));
        }
        ASSERT_TRUE(waitFor([&] {
            for (const auto &page : m_pages) {
                if (!page->isDone() || !page->isOpen())
                    return !page->isOpen();
            }
            return true;
        })) << "stalled at " << answered() << " answers of " << totalAnswers;

        for (const auto &page : m_pages) {
            EXPECT_TRUE(page->isOpen());
            EXPECT_TRUE(page->isDone());
            for (const QString &failure : page->failures())
                ADD_FAILURE() << qPrintable(failure);
            EXPECT_EQ(page->answeredDrops(), QStringList());
        }
        EXPECT_EQ(answered(), totalAnswers);
        EXPECT_EQ(counts->calls, kClients * callsPerPage);
        EXPECT_EQ(counts->largeDecodes, kClients * largeAt.size());
        EXPECT_EQ(oversizeClosed - oversizeBefore, kOversizeRounds.size());
    }

    void closePages()
    {
        for (auto &page : m_pages)
            page->client().socket().close();
        for (auto &page : m_pages)
            page->client().waitForDisconnected();
        m_pages.clear();
    }

    static QString toText(const QJsonObject &message)
    {
        return QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact));
    }

    QDeadlineTimer m_deadline{kDeadlineMs};
    ServeProcess serve;
    Material material;
    std::vector<std::unique_ptr<LoadPage>> m_pages;
    int stormDecodes = 0;
    int oversizeClosed = 0;
};

} // namespace

TEST_F(BridgeLoadTest, answersEveryCallUnderLoadAndKeepsItsMemory)
{
    QElapsedTimer clock;
    clock.start();

    // One page, one call at a time: the whole session, with a wrong PIN whose message stays
    // that page's last error, since none of its later calls fails.
    {
        BridgeClient warm(serve.origin());
        ASSERT_TRUE(warm.open(serve.webSocketUrl()));
        warm.initialize();
        ASSERT_EQ(warm.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
        ASSERT_EQ(warm.call(QStringLiteral("WebVerifyPin"), {kWrongPin}), QJsonValue(false));
        ASSERT_EQ(warm.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(kWrongPinMessage));
        ASSERT_EQ(warm.call(QStringLiteral("WebVerifyPin"), {kUserPin}), QJsonValue(true));
        ASSERT_EQ(warm.call(QStringLiteral("WebGetCertData"), {"1"}), QJsonValue(material.certificateText));
        for (const Material::Envelope &envelope : material.large)
            ASSERT_EQ(warm.call(QStringLiteral("WebZtDecode"), {envelope.text, double(kSm4Ecb)}),
                      QJsonValue(envelope.answer));
        for (const Material::Envelope &envelope : material.small)
            ASSERT_EQ(warm.call(QStringLiteral("WebZtDecode"), {envelope.text, double(kSm4Ecb)}),
                      QJsonValue(envelope.answer));
        ASSERT_EQ(warm.call(QStringLiteral("WebZtEncode"),
                            {"d2FybQ==", material.certificateText, double(kSm4Ecb)}),
                  QJsonValue(QString(QLatin1String(""))));
        ASSERT_EQ(warm.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(kWrongPinMessage));
        warm.socket().close();
        warm.waitForDisconnected();
    }
    // A short mixed run first, one block of calls per page with its 1 MiB decode first (so
    // four are in flight together), storms and oversize messages included: the "before"
    // figure then holds what the server allocates once and keeps (Qt's and OpenSSL's tables,
    // the channel's, the allocator's arenas).
    Counts warmUp;
    ASSERT_NO_FATAL_FAILURE(mixedRun(kPatternLength, {0}, &warmUp));
    closePages();
    stormDecodes = 0;
    const qint64 rssBefore = settledResidentBytes();
    ASSERT_GT(rssBefore, 0);
    const qint64 warmUpMs = clock.elapsed();

    Counts mixed;
    ASSERT_NO_FATAL_FAILURE(mixedRun(kCallsPerClient, kLargeDecodeAt, &mixed));
    const qint64 mixedMs = clock.elapsed() - warmUpMs;

    // A burst beyond --max-clients while the four pages stay: the places left are taken, the
    // rest refused. The aborted storm connections may still hold a place for a moment, so
    // the burst starts once the server has freed them.
    std::vector<std::unique_ptr<BridgeClient>> burst;
    ASSERT_TRUE(waitFor([&] {
        burst.clear();
        for (int i = kClients; i < kMaxClients; ++i) {
            burst.push_back(std::make_unique<BridgeClient>(serve.origin()));
            if (!burst.back()->open(serve.webSocketUrl()))
                return false;
        }
        return true;
    }, 10'000));
    for (int i = 0; i < kBurstExtra; ++i) {
        BridgeClient refused(serve.origin());
        EXPECT_FALSE(refused.open(serve.webSocketUrl())) << "burst connection " << i;
    }
    for (auto &client : burst)
        client->socket().close();
    for (auto &client : burst)
        client->waitForDisconnected();
    burst.clear();
    closePages();

    const qint64 rssAfter = settledResidentBytes();
    ASSERT_GT(rssAfter, 0);
    const int serverDecodes = mixed.decodes + stormDecodes;
    const qint64 leaks = serverDecodes * kDecodeLeakBytes;
    const qint64 growth = rssAfter - rssBefore;
    std::printf("load: %d calls and %d bad messages on %d pages, %d storm connections, %d oversize "
                "messages, a burst of %d; warm-up %lld ms (%d calls), mixed run %lld ms\n"
                "load: server VmRSS %lld KiB before, %lld KiB after: %+lld B (%+.0f B per call); "
                "deliberate leaks %lld B (%d decodes), slack %lld B\n",
                mixed.calls, mixed.faults, kClients, kStormConnections,
                int(kOversizeRounds.size()), kMaxClients - kClients + kBurstExtra, warmUpMs,
                warmUp.calls, mixedMs,
                rssBefore / 1024, rssAfter / 1024, growth,
                double(growth) / mixed.calls, leaks, serverDecodes,
                kRssSlackBytes);
    EXPECT_LE(growth, leaks + kRssSlackBytes);

    // The server still serves a fresh page a whole session.
    {
        BridgeClient fresh(serve.origin());
        ASSERT_TRUE(fresh.open(serve.webSocketUrl()));
        fresh.initialize();
        EXPECT_EQ(fresh.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
        EXPECT_EQ(fresh.call(QStringLiteral("WebVerifyPin"), {kUserPin}), QJsonValue(true));
        EXPECT_EQ(fresh.call(QStringLiteral("WebGetCertData"), {"1"}), QJsonValue(material.certificateText));
        for (const Material::Envelope &envelope : material.small)
            EXPECT_EQ(fresh.call(QStringLiteral("WebZtDecode"), {envelope.text, double(kSm4Ecb)}),
                      QJsonValue(envelope.answer));
        EXPECT_EQ(fresh.call(QStringLiteral("WebZtDecode"),
                             {material.large.front().text, double(kSm4Ecb)}),
                  QJsonValue(material.large.front().answer));
    }

    ASSERT_TRUE(serve.stop(SIGTERM));
    EXPECT_EQ(serve.process().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(serve.process().exitCode(), 0);
    EXPECT_TRUE(serve.standardError().contains("zthost serve: stopped (SIGTERM)"))
        << serve.standardError().constData();
    EXPECT_FALSE(serve.allLogs().contains(kUserPin.toUtf8()));
    EXPECT_GT(remainingMs(), 0) << "the run went past its deadline";
}
