// The key session: WebOpenKey, WebVerifyPin and WebCloseKey against a scripted host. What each
// answers, the error code it leaves, the host calls it makes, which key the object keeps between
// calls, and the lines it writes to the core trace and the crypto log.

#include "error_probe.h"
#include "qt_printers.h"
#include "agents.h"
#include "crypto_error.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "stdout_capture.h"
#include "zt_cryptographic.h"

#include <QMetaObject>
#include <QObject>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <functional>
#include <ostream>

namespace {

const QString kKeyProgId = QStringLiteral("ZTKEY.ZtKey.1");
const QString kKeyClassId = QStringLiteral("5F02B9D8-61E4-4A37-9C25-D0B3E8A41F76");

const QString kNoKeyDevice = QStringLiteral("未检测到电子密钥盘");                          // 1000
const QString kWrongPin = QStringLiteral("您输入的电子钥匙盘密码错误，请重新输入!"); // 1007

const QString kOpenKeyStartLine = QStringLiteral("[ZtCryptographic::WebOpenKey] start openkey ");
const QString kCloseKeyLine = QStringLiteral("[ZtCryptographic::WebCloseKey]");

const QStringList kOpenKeySucceeded = {"D [WebOpenKey:#] start "};
const QStringList kOpenKeyFailed = {"D [WebOpenKey:#] start ",
                                    "D [WebOpenKey:#] end, open key fail "};

// One test's world: the log sandbox first (agents read the temporary path when they are made),
// a key host with one key, and the object under test, with the records of its making cleared.
struct Session
{
    LogSandbox logs;
    KeyHost host;
    ZtCryptographic crypto;

    Session() { host.core.clearRecords(); }

    QStringList trace() const
    {
        return host.core.traceLines({"WebOpenKey", "WebVerifyPin", "WebCloseKey"});
    }

    // Forgets what the host saw so far; the key and its state stay.
    void clearRecords()
    {
        host.clearRecords();
    }

    int keyAgentsUnderKeyManager() const
    {
        int agents = 0;
        for (QObject *child : host.keyManager.children())
            agents += dynamic_cast<ZtKeyAgent *>(child) ? 1 : 0;
        return agents;
    }
};

} // namespace

// WebOpenKey.

TEST(KeySession, openKeySucceedsThroughTheMetaObject)
{
    Session s;
    bool opened = false;
    ASSERT_TRUE(QMetaObject::invokeMethod(&s.crypto, "WebOpenKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, opened)));
    EXPECT_TRUE(opened);
}

TEST(KeySession, openKeyAsksForTheKeyComponentByItsIds)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    ASSERT_EQ(s.host.core.creations().size(), 1);
    EXPECT_EQ(s.host.core.creations().at(0).progId, kKeyProgId);
    EXPECT_EQ(s.host.core.creations().at(0).classId, kKeyClassId);
    EXPECT_EQ(s.host.signatureManager.getZtKeyCalls, 1);
    EXPECT_EQ(s.host.keyComponent.countCalls, 1);
}

TEST(KeySession, openKeySuccessTracesOnlyItsStartAndKeepsTheErrorCode)
{
    Session s;
    SetCryptoErrorCode(kEarlierCode);
    ASSERT_TRUE(s.crypto.WebOpenKey());
    EXPECT_EQ(s.trace(), kOpenKeySucceeded);
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(KeySession, openKeySuccessLogsStartAndSpendTimeToTheCryptoLog)
{
    CryptoLogTap cryptoLog;
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    const QStringList lines = cryptoLog.appendedMessages();
    ASSERT_EQ(lines.size(), 2) << lines.join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(lines.at(0), kOpenKeyStartLine);
    const QRegularExpression endLine(QStringLiteral(
        "^\\[ZtCryptographic::WebOpenKey\\] end, spend time \\[[0-9]+\\.[0-9]{6}\\]S$"));
    EXPECT_TRUE(endLine.match(lines.at(1)).hasMatch()) << lines.at(1).toStdString();
}

TEST(KeySession, openKeyMakesNoCallOnTheKeyObject)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    EXPECT_EQ(s.host.key.calls, QStringList());
}

TEST(KeySession, openKeyWithNoKeyAttachedFailsWithNoKeyDevice)
{
    CryptoLogTap cryptoLog;
    Session s;
    s.host.detachKeys();
    EXPECT_FALSE(s.crypto.WebOpenKey());
    EXPECT_EQ(currentErrorMessage(), kNoKeyDevice);
    EXPECT_EQ(s.trace(), kOpenKeyFailed);
    EXPECT_EQ(s.host.keyComponent.openedIndices, QList<int>());
    // The start line only: the end line is written on success alone.
    EXPECT_EQ(cryptoLog.appendedMessages(), QStringList{kOpenKeyStartLine});
}

TEST(KeySession, openKeyWithTwoKeysOpensTheFirst)
{
    Session s;
    ScriptedKeyObject second;
    s.host.keyComponent.keys = {&s.host.key, &second};
    ASSERT_TRUE(s.crypto.WebOpenKey());
    EXPECT_EQ(s.host.keyComponent.openedIndices, QList<int>{0});

    EXPECT_TRUE(s.crypto.WebVerifyPin(QStringLiteral("123456")));
    EXPECT_EQ(s.host.key.calls, QStringList{"verifyPin(123456,false)"});
    EXPECT_EQ(second.calls, QStringList());
}

TEST(KeySession, openKeyWithoutKeyManagerFailsBeforeTheKeyComponent)
{
    Session s;
    s.host.signatureManager.keyManager = nullptr;
    EXPECT_FALSE(s.crypto.WebOpenKey());
    EXPECT_EQ(currentErrorMessage(), kNoKeyDevice);
    EXPECT_EQ(s.trace(), kOpenKeyFailed);
    EXPECT_EQ(s.host.signatureManager.getZtKeyCalls, 1);
    EXPECT_TRUE(s.host.core.creations().isEmpty()); // no key component asked for
    EXPECT_EQ(s.host.keyComponent.countCalls, 0);
}

TEST(KeySession, openKeyWithoutKeyComponentPrintsItsIdAndFailsWithNoKeyDevice)
{
    Session s;
    s.host.core.withdraw(kKeyProgId);
    StdoutCapture out;
    const bool opened = s.crypto.WebOpenKey();
    const QByteArray printed = out.text();

    EXPECT_EQ(printed,
              QByteArray("createComponentObject = 5F02B9D8-61E4-4A37-9C25-D0B3E8A41F76  fail"));
    EXPECT_FALSE(opened);
    EXPECT_EQ(currentErrorMessage(), kNoKeyDevice);
    EXPECT_EQ(s.trace(), kOpenKeyFailed);
    EXPECT_EQ(s.host.keyComponent.countCalls, 0);
}

TEST(KeySession, openKeyWhenOpenYieldsNoKeyObjectFailsWithNoKeyDevice)
{
    Session s;
    s.host.keyComponent.keys = {nullptr}; // counted, but "open" answers null
    EXPECT_FALSE(s.crypto.WebOpenKey());
    EXPECT_EQ(currentErrorMessage(), kNoKeyDevice);
    EXPECT_EQ(s.trace(), kOpenKeyFailed);
    EXPECT_EQ(s.host.keyComponent.openedIndices, QList<int>{0});
}

TEST(KeySession, openKeyWithoutSignatureManagerComponentFailsWithNoKeyDevice)
{
    LogSandbox logs;
    KeyHost host;
    host.core.withdraw(QStringLiteral("ZTSIGNATUREMANAGER.ZtSignatureManager.1"));
    StdoutCapture out;
    ZtCryptographic crypto;
    host.core.clearRecords();
    const bool opened = crypto.WebOpenKey();
    const QByteArray printed = out.text();

    EXPECT_EQ(printed,
              QByteArray("createComponentObject = A3C5E761-0B2F-4D88-B613-2F97C4D1E05B  fail"));
    EXPECT_FALSE(opened);
    EXPECT_EQ(currentErrorMessage(), kNoKeyDevice);
    EXPECT_EQ(host.core.traceLines({"WebOpenKey"}), kOpenKeyFailed);
    EXPECT_EQ(host.signatureManager.getZtKeyCalls, 0);
}

TEST(KeySession, openKeyFailingBeforeOpenKeepsTheEarlierKey)
{
    struct Row
    {
        const char *reason;
        std::function<void(KeyHost &)> spoil;
    };
    const Row rows[] = {
        {"getZtKey answers null", [](KeyHost &h) { h.signatureManager.keyManager = nullptr; }},
        {"key component not created", [](KeyHost &h) { h.core.withdraw(kKeyProgId); }},
        {"count answers 0", [](KeyHost &h) { h.detachKeys(); }},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Session s;
        ASSERT_TRUE(s.crypto.WebOpenKey());
        row.spoil(s.host);
        bool reopened = true;
        {
            StdoutCapture quiet; // a missing component is reported on standard output
            reopened = s.crypto.WebOpenKey();
        }
        EXPECT_FALSE(reopened);
        s.clearRecords();

        EXPECT_TRUE(s.crypto.WebVerifyPin(QStringLiteral("123456")));
        EXPECT_EQ(s.host.key.calls, QStringList{"verifyPin(123456,false)"});
    }
}

TEST(KeySession, openKeyFailingAtOpenForgetsTheEarlierKey)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    s.host.keyComponent.keys = {nullptr};
    EXPECT_FALSE(s.crypto.WebOpenKey());
    s.clearRecords();
    SetCryptoErrorCode(kEarlierCode);

    EXPECT_FALSE(s.crypto.WebVerifyPin(QStringLiteral("123456")));
    EXPECT_EQ(currentErrorMessage(), kNoKeyDevice);
    EXPECT_EQ(s.host.key.calls, QStringList());
}

TEST(KeySession, secondSuccessfulOpenReplacesTheKeyWithoutClosingTheFirst)
{
    Session s;
    ScriptedKeyObject replacement;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    s.host.keyComponent.keys = {&replacement};
    ASSERT_TRUE(s.crypto.WebOpenKey());

    EXPECT_TRUE(s.crypto.WebVerifyPin(QStringLiteral("123456")));
    EXPECT_EQ(replacement.calls, QStringList{"verifyPin(123456,false)"});
    EXPECT_EQ(s.host.key.calls, QStringList()); // neither closed nor asked
}

TEST(KeySession, eachOpenPastGetZtKeyAddsOneKeyAgentToTheKeyManager)
{
    Session s;
    EXPECT_EQ(s.keyAgentsUnderKeyManager(), 0);
    ASSERT_TRUE(s.crypto.WebOpenKey());
    EXPECT_EQ(s.keyAgentsUnderKeyManager(), 1);
    ASSERT_TRUE(s.crypto.WebOpenKey());
    EXPECT_EQ(s.keyAgentsUnderKeyManager(), 2);
    s.host.detachKeys();
    EXPECT_FALSE(s.crypto.WebOpenKey()); // fails at "count", after the agent was made
    EXPECT_EQ(s.keyAgentsUnderKeyManager(), 3);
    EXPECT_EQ(s.host.keyManager.children().size(), 3);
}

// WebVerifyPin.

TEST(KeySession, verifyPinSucceedsThroughTheMetaObject)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    bool verified = false;
    ASSERT_TRUE(QMetaObject::invokeMethod(&s.crypto, "WebVerifyPin", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, verified),
                                          Q_ARG(QString, QStringLiteral("123456"))));
    EXPECT_TRUE(verified);
}

TEST(KeySession, verifyPinBeforeOpenKeyFailsWithNoKeyDevice)
{
    Session s;
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_FALSE(s.crypto.WebVerifyPin(QStringLiteral("123456")));
    EXPECT_EQ(currentErrorMessage(), kNoKeyDevice);
    EXPECT_EQ(s.trace(), QStringList{"D [WebVerifyPin:#] start "});
    EXPECT_EQ(s.host.key.calls, QStringList());
}

TEST(KeySession, verifyPinWithWrongPinFailsWithWrongPinMessage)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    s.clearRecords();
    EXPECT_FALSE(s.crypto.WebVerifyPin(QStringLiteral("654321")));
    EXPECT_EQ(currentErrorMessage(), kWrongPin);
    EXPECT_EQ(s.crypto.WebGetLastErrorMsg(), kWrongPin);
    EXPECT_EQ(s.trace(), QStringList{"D [WebVerifyPin:#] start "});
}

TEST(KeySession, verifyPinWithRightPinSucceedsAndKeepsTheEarlierFailure)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    ASSERT_FALSE(s.crypto.WebVerifyPin(QStringLiteral("654321")));
    s.clearRecords();
    EXPECT_TRUE(s.crypto.WebVerifyPin(QStringLiteral("123456")));
    EXPECT_EQ(s.crypto.WebGetLastErrorMsg(), kWrongPin);
    EXPECT_EQ(s.trace(), QStringList{"D [WebVerifyPin:#] start "});
}

TEST(KeySession, verifyPinPassesThePinAndFalseToTheKey)
{
    Session s;
    s.host.key.userPin = QStringLiteral("Zt-88 21");
    ASSERT_TRUE(s.crypto.WebOpenKey());
    EXPECT_TRUE(s.crypto.WebVerifyPin(QStringLiteral("Zt-88 21")));
    EXPECT_EQ(s.host.key.calls, QStringList{"verifyPin(Zt-88 21,false)"});
}

TEST(KeySession, verifyPinWritesNothingToTheCryptoLog)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    CryptoLogTap cryptoLog;
    EXPECT_TRUE(s.crypto.WebVerifyPin(QStringLiteral("123456")));
    EXPECT_FALSE(s.crypto.WebVerifyPin(QStringLiteral("654321")));
    EXPECT_EQ(cryptoLog.appendedMessages(), QStringList());
}

TEST(KeySession, pinNeverReachesAnyLog)
{
    const QString rightPin = QStringLiteral("739146");
    const QString wrongPin = QStringLiteral("582037");
    CryptoLogTap cryptoLog;
    Session s;
    s.host.key.userPin = rightPin;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    EXPECT_TRUE(s.crypto.WebVerifyPin(rightPin));
    EXPECT_FALSE(s.crypto.WebVerifyPin(wrongPin));
    ASSERT_EQ(s.host.key.calls.size(), 2); // both reached the key

    const QByteArray coreLog = s.logs.coreLogBytes();
    ASSERT_FALSE(coreLog.isEmpty()); // the dispatcher did log these calls
    const QByteArray cryptoLogBytes = cryptoLog.appended();
    for (const QString &pin : {rightPin, wrongPin}) {
        SCOPED_TRACE(pin.toStdString());
        for (const FakeCore::Trace &trace : s.host.core.traces())
            EXPECT_FALSE(trace.text.contains(pin)) << trace.text.toStdString();
        EXPECT_FALSE(coreLog.contains(pin.toUtf8()));
        EXPECT_FALSE(cryptoLogBytes.contains(pin.toUtf8()));
    }
}

// WebCloseKey.

TEST(KeySession, closeKeySucceedsThroughTheMetaObject)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    bool closed = false;
    ASSERT_TRUE(QMetaObject::invokeMethod(&s.crypto, "WebCloseKey", Qt::DirectConnection,
                                          Q_RETURN_ARG(bool, closed)));
    EXPECT_TRUE(closed);
    EXPECT_EQ(s.host.key.calls, QStringList{"close()"});
}

TEST(KeySession, closeKeyWithoutKeyWritesOnlyItsTwoLines)
{
    CryptoLogTap cryptoLog;
    Session s;
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_TRUE(s.crypto.WebCloseKey());
    EXPECT_EQ(s.trace(), QStringList{"D [WebCloseKey:#] start "});
    EXPECT_EQ(cryptoLog.appendedMessages(), QStringList{kCloseKeyLine});
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
    EXPECT_EQ(s.host.key.calls, QStringList());
}

TEST(KeySession, closeKeyClosesTheKeyAndTracesOnlyItsStart)
{
    Session s;
    ASSERT_TRUE(s.crypto.WebOpenKey());
    s.clearRecords();
    CryptoLogTap cryptoLog;
    SetCryptoErrorCode(kEarlierCode);
    EXPECT_TRUE(s.crypto.WebCloseKey());
    EXPECT_EQ(s.host.key.calls, QStringList{"close()"});
    EXPECT_EQ(s.trace(), QStringList{"D [WebCloseKey:#] start "});
    EXPECT_EQ(cryptoLog.appendedMessages(), QStringList{kCloseKeyLine});
    EXPECT_EQ(currentErrorMessage(), kEarlierCodeKept);
}

TEST(KeySession, closeKeepsTheKeyObject)
{
    struct Row
    {
        const char *reason;
        const char *pin;
        bool answer;
    };
    const Row rows[] = {
        {"the closed key accepts its PIN", "123456", true},
        {"the closed key refuses another PIN", "000000", false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Session s;
        ASSERT_TRUE(s.crypto.WebOpenKey());
        ASSERT_TRUE(s.crypto.WebCloseKey());
        EXPECT_EQ(s.crypto.WebVerifyPin(QString::fromLatin1(row.pin)), row.answer);
        EXPECT_EQ(s.host.key.calls,
                  (QStringList{"close()", QStringLiteral("verifyPin(%1,false)").arg(row.pin)}));
    }
}
