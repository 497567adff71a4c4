// Every host call of an operation failing in turn, in every way a host can fail: the k-th call
// answers its empty value, lacks the method, or takes a parameter type the dispatcher refuses.
// The host is the real one (core, key component over the software device, ASN.1 and
// certificate components), reached through fault proxies. For every k and every way the
// operation answers its documented success or failure value with one of its documented codes,
// and nothing crashes; the sanitized build checks that nothing leaks beyond the deliberate leaks.

#include "error_probe.h"
#include "fault_proxy.h"
#include "installed_core.h"
#include "log_sandbox.h"
#include "openssl_envelope.h"
#include "qt_printers.h"
#include "soft_key_root.h"
#include "test_data.h"
#include "zt_cryptographic.h"
#include "zt_envelope_data.h"

#include "core/host_core.h"
#include "session/standard_components.h"

#include <QFile>
#include <QHash>
#include <QSet>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace {

const char kUserPin[] = "fault-pin-1234";
const char kDevice[] = "faulty";
const QByteArray kContent = QByteArrayLiteral("content that survives every fault");

QString messageOf(unsigned long code)
{
    static const QHash<unsigned long, QString> table = [] {
        QHash<unsigned long, QString> messages;
        QFile file(testDataFile("error_messages.tsv"));
        if (file.open(QIODevice::ReadOnly)) {
            for (const QByteArray &line : file.readAll().split('\n')) {
                const int tab = line.indexOf('\t');
                bool ok = false;
                const unsigned long value = line.left(tab).toULong(&ok, 0);
                if (tab > 0 && ok)
                    messages.insert(value, QString::fromUtf8(line.mid(tab + 1)));
            }
        }
        return messages;
    }();
    return table.value(code);
}

// One host: the real core and components behind fault proxies, the core installed in the
// plug-in, and one scriptable object.
class FaultHost
{
public:
    explicit FaultHost(FaultPlan &plan) : m_arena(plan)
    {
        // Hundreds of refused device calls are logged; the file keeps the test output readable.
        m_core.log().setFile(m_logs.tempPath() + QStringLiteral("/host.log"));
        zthost::registerStandardComponents(m_core, {QStringLiteral(ZT_SOFTSKF_DRIVER_PATH)});
        m_installed = std::make_unique<InstalledCore>(m_arena.proxyFor(&m_core));
        crypto = std::make_unique<ZtCryptographic>();
    }
    ~FaultHost()
    {
        m_arena.plan().disarm();
        crypto.reset();
        m_installed.reset();
        m_core.reclaim();
    }

    std::unique_ptr<ZtCryptographic> crypto;

private:
    LogSandbox m_logs{LogSandbox::CoreLog::Off};
    zthost::HostCore m_core;
    // Proxies go before the core: the plug-in parented its key agents to one of them.
    FaultProxyArena m_arena;
    std::unique_ptr<InstalledCore> m_installed;
};

// What an operation answered and the message of the code it left.
struct Outcome
{
    QString answer;
    QString message;
};

// One operation: how to set the host up (no faults), how to run it, and what it may answer.
// Filled field by field in each test, so every value says what it is.
struct Operation
{
    const char *name = "";
    std::function<void(FaultHost &)> setUp = [](FaultHost &) {};
    std::function<QString(FaultHost &)> run;
    QString success;               // the one answer that is not a failure
    QSet<unsigned long> codes;     // the codes a failure may leave; empty: sets none
    std::function<bool(const QString &)> acceptableFailure; // the failure answers
};

class FaultInjection : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_root = std::make_unique<SoftKeyRoot>();
        s_root->provision({QLatin1String(kDevice), kUserPin, "fault-admin-5678", 255, QString()});
        s_certificate = s_root->certificate(QLatin1String(kDevice));
        s_envelope = makeEnvelopeWithOpenSsl(s_certificate, kContent);
        ASSERT_FALSE(s_envelope.isEmpty());
    }
    static void TearDownTestSuite() { s_root.reset(); }

    // Runs `op` once with faults off to count its host calls, then once for every k and way.
    // Answers the number of faulted runs.
    int exercise(const Operation &op)
    {
        FaultPlan plan;
        int calls = 0;
        {
            FaultHost host(plan);
            op.setUp(host);
            SetCryptoErrorCode(kEarlierCode);
            plan.countOnly();
            const QString answer = op.run(host);
            calls = plan.calls();
            EXPECT_EQ(answer, op.success) << op.name << " without faults";
            EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept) << op.name << " without faults";
        }
        EXPECT_GT(calls, 0) << op.name;

        const FaultPlan::Way ways[] = {FaultPlan::Way::FailureValue,
                                       FaultPlan::Way::MethodMissing,
                                       FaultPlan::Way::TypeRefused};
        const char *wayNames[] = {"answers its empty value", "lacks the method",
                                  "refuses the parameter type"};
        int runs = 0;
        for (int k = 1; k <= calls; ++k) {
            for (int w = 0; w < 3; ++w) {
                SCOPED_TRACE(testing::Message() << op.name << ": host call " << k << " of "
                                                << calls << " " << wayNames[w]);
                FaultHost host(plan);
                plan.disarm();
                op.setUp(host);
                SetCryptoErrorCode(kEarlierCode);
                plan.arm(k, ways[w]);
                const QString answer = op.run(host);
                plan.disarm();
                EXPECT_TRUE(plan.fired());
                const QString message = currentErrorMessage();
                if (answer == op.success) {
                    EXPECT_EQ(message, kEarlierCodeKept) << "a success never touches the code";
                } else {
                    EXPECT_TRUE(op.acceptableFailure(answer)) << answer.left(200).toStdString();
                    if (op.codes.isEmpty()) {
                        EXPECT_EQ(message, kEarlierCodeKept);
                    } else {
                        bool documented = false;
                        for (unsigned long code : op.codes)
                            documented = documented || message == messageOf(code);
                        EXPECT_TRUE(documented) << message.toStdString();
                    }
                }
                ++runs;
            }
        }
        RecordProperty("host_calls", calls);
        RecordProperty("faulted_runs", runs);
        return runs;
    }

    static bool isFalseText(const QString &answer) { return answer == QLatin1String("false"); }

    static void openKey(FaultHost &host) { ASSERT_TRUE(host.crypto->WebOpenKey()); }
    static void openAndLogIn(FaultHost &host)
    {
        ASSERT_TRUE(host.crypto->WebOpenKey());
        ASSERT_TRUE(host.crypto->WebVerifyPin(QLatin1String(kUserPin)));
    }

    static std::unique_ptr<SoftKeyRoot> s_root;
    static QByteArray s_certificate;
    static QByteArray s_envelope;
};

std::unique_ptr<SoftKeyRoot> FaultInjection::s_root;
QByteArray FaultInjection::s_certificate;
QByteArray FaultInjection::s_envelope;

QString boolText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

TEST_F(FaultInjection, openKeyAnswersFalseWithNoKeyOrOpens)
{
    Operation op;
    op.name = "WebOpenKey";
    op.run = [](FaultHost &h) { return boolText(h.crypto->WebOpenKey()); };
    op.success = QStringLiteral("true");
    op.codes = {1000};
    op.acceptableFailure = isFalseText;
    exercise(op);
}

TEST_F(FaultInjection, verifyPinAnswersFalseWithWrongPinOrLogsIn)
{
    Operation op;
    op.name = "WebVerifyPin";
    op.setUp = openKey;
    op.run = [](FaultHost &h) { return boolText(h.crypto->WebVerifyPin(QLatin1String(kUserPin))); };
    op.success = QStringLiteral("true");
    op.codes = {1007, 1000};
    op.acceptableFailure = isFalseText;
    exercise(op);
}

TEST_F(FaultInjection, certificateIsTheKeysOrFalseWithAContainerCode)
{
    Operation op;
    op.name = "WebGetCertData";
    op.setUp = openAndLogIn;
    op.run = [](FaultHost &h) { return h.crypto->WebGetCertData(QString()); };
    op.success = QString::fromLatin1(s_certificate.toBase64());
    op.codes = {1000, 0x0D000041, 0x0B000035, 0x2008};
    op.acceptableFailure = isFalseText;
    exercise(op);
}

TEST_F(FaultInjection, decodeIsThePlaintextOrFalseWithADecodeCode)
{
    Operation op;
    op.name = "WebZtDecode";
    op.setUp = openAndLogIn;
    op.run = [](FaultHost &h) {
        return h.crypto->WebZtDecode(QString::fromLatin1(s_envelope.toBase64()), 0x401);
    };
    op.success = QString::fromLatin1(kContent.toBase64());
    op.codes = {1000, 0x2005, 0x2006, 0x0B000035, 0x0D000041, 0x2002, 0x2003, 0x2004};
    op.acceptableFailure = isFalseText;
    exercise(op);
}

TEST_F(FaultInjection, buildGivesTheEnvelopeOrAShorterOrEmptyOneAndNoCode)
{
    // A host that refuses part of the tree gets a shorter envelope: still one DER value.
    Sm2CiphertextFields fields;
    ASSERT_TRUE(splitSm2Ciphertext(
        sm2Encrypt(publicKeyOfCertificate(s_certificate).get(), randomBytes(16)), &fields));
    const QByteArray packed = packedKeyData(fields);
    std::shared_ptr<QByteArray> full = std::make_shared<QByteArray>();
    auto build = [packed](FaultHost &) {
        ZtEnvelopeData envelope;
        envelope.SetRecCert(s_certificate);
        envelope.SetEncKeyData(packed);
        envelope.SetEncContent(kContent);
        return QString::fromLatin1(envelope.build().toHex());
    };
    {
        FaultPlan plan;
        FaultHost host(plan);
        *full = build(host).toLatin1();
        ASSERT_FALSE(full->isEmpty());
    }
    Operation op;
    op.name = "ZtEnvelopeData::build";
    op.run = build;
    op.success = QString::fromLatin1(*full);
    op.acceptableFailure = [](const QString &hex) {
        DerNode root;
        return hex.isEmpty() || parseDer(QByteArray::fromHex(hex.toLatin1()), &root);
    };
    exercise(op);
}

TEST_F(FaultInjection, loadFindsTheContentOrFailsWithALoadCode)
{
    Operation op;
    op.name = "ZtEnvelopeData::load";
    op.run = [](FaultHost &) {
        ZtEnvelopeData envelope;
        const bool loaded = envelope.load(s_envelope);
        // Success is judged by the content alone, which must then be the right one.
        if (loaded && envelope.GetEncContent().isEmpty())
            return QStringLiteral("loaded without content");
        return boolText(loaded);
    };
    op.success = QStringLiteral("true");
    op.codes = {0x2005, 0x2006};
    op.acceptableFailure = isFalseText;
    exercise(op);
}
