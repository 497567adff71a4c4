// One session per page, on the real plug-in and a software key: each page's WebOpenKey, PIN and
// last error are its own, and a page's scriptable object is closed and deleted when it goes.

#include "bridge_client.h"
#include "serve_process.h"

#include <QFile>

#include <gtest/gtest.h>

#include <csignal>

namespace {

const QString kUserPin = QStringLiteral("pages-PIN-61120");
const QString kWrongPin = QStringLiteral("pages-WRONG-33817");
const QString kWrongPinMessage = QStringLiteral("您输入的电子钥匙盘密码错误，请重新输入!");
constexpr double kSm4Ecb = 0x401;

class PagesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(serve.isValid());
        QByteArray output;
        QString failure;
        ASSERT_TRUE(serve.makeKey(kUserPin, &failure)) << qPrintable(failure);
        ASSERT_TRUE(serve.runTool({QStringLiteral("cert"), QStringLiteral("--out"), serve.path("cert.b64")},
                                  &output, &failure))
            << qPrintable(failure);
        QFile content(serve.path("content.txt"));
        ASSERT_TRUE(content.open(QIODevice::WriteOnly));
        content.write(kPlaintext);
        content.close();
        ASSERT_TRUE(serve.runTool({QStringLiteral("encrypt"), QStringLiteral("--cert"), serve.path("cert.b64"),
                                   QStringLiteral("--in"), serve.path("content.txt"), QStringLiteral("--out"),
                                   serve.path("envelope.b64")},
                                  &output, &failure))
            << qPrintable(failure);
        QFile envelopeFile(serve.path("envelope.b64"));
        ASSERT_TRUE(envelopeFile.open(QIODevice::ReadOnly));
        envelope = QString::fromLatin1(envelopeFile.readAll().trimmed());
        ASSERT_TRUE(serve.start({}, &failure)) << qPrintable(failure);
    }

    const QByteArray kPlaintext = "for one page only";
    QString envelope;
    ServeProcess serve;
};

} // namespace

TEST_F(PagesTest, keepsEachPagesKeyPinAndLastErrorItsOwn)
{
    BridgeClient first(serve.origin());
    ASSERT_TRUE(first.open(serve.webSocketUrl()));
    first.initialize();
    EXPECT_EQ(first.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_EQ(first.call(QStringLiteral("WebVerifyPin"), {kUserPin}), QJsonValue(true));

    // A second page opens the same key and gets the PIN wrong.
    BridgeClient second(serve.origin());
    ASSERT_TRUE(second.open(serve.webSocketUrl()));
    second.initialize();
    EXPECT_EQ(second.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_EQ(second.call(QStringLiteral("WebVerifyPin"), {kWrongPin}), QJsonValue(false));

    // The first page's session is untouched: it still decodes, and it has no failure of its own.
    const QString expected = QString::fromLatin1(kPlaintext.toBase64());
    EXPECT_EQ(first.call(QStringLiteral("WebZtDecode"), {envelope, kSm4Ecb}), QJsonValue(expected));
    EXPECT_EQ(first.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(QString()));
    // The second page's last error is its own wrong PIN, whatever the first page did since.
    EXPECT_EQ(second.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(kWrongPinMessage));
    // And it was never logged in: its decode fails, with its own message.
    EXPECT_EQ(second.call(QStringLiteral("WebZtDecode"), {envelope, kSm4Ecb}), QJsonValue(QStringLiteral("false")));
    const QJsonValue secondError = *second.call(QStringLiteral("WebGetLastErrorMsg"));
    EXPECT_NE(secondError, QJsonValue(kWrongPinMessage));
    EXPECT_NE(secondError, QJsonValue(QString()));
    EXPECT_EQ(first.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(QString()));

    // The second page closing its key leaves the first one's open.
    EXPECT_EQ(second.call(QStringLiteral("WebCloseKey")), QJsonValue(true));
    EXPECT_EQ(first.call(QStringLiteral("WebZtDecode"), {envelope, kSm4Ecb}), QJsonValue(expected));
    ASSERT_TRUE(serve.stop(SIGTERM));
}

TEST_F(PagesTest, closesAndDeletesAPagesObjectWhenThePageGoes)
{
    {
        BridgeClient page(serve.origin());
        ASSERT_TRUE(page.open(serve.webSocketUrl()));
        page.initialize();
        EXPECT_EQ(page.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
        EXPECT_EQ(page.call(QStringLiteral("WebVerifyPin"), {kUserPin}), QJsonValue(true));
    }
    const QByteArray left = "bridge: a page disconnected: WebCloseKey answered true, its scriptable object "
                            "deleted, 0 left\n";
    ASSERT_TRUE(waitUntil([&] { return serve.hostLog().contains(left); })) << serve.hostLog().constData();

    // A page that never opened the key: WebCloseKey still runs, and answers what the library
    // answers for a key that is not open.
    {
        BridgeClient idle(serve.origin());
        ASSERT_TRUE(idle.open(serve.webSocketUrl()));
        idle.initialize();
    }
    ASSERT_TRUE(waitUntil([&] { return serve.hostLog().count("bridge: a page disconnected: WebCloseKey answered") == 2; }))
        << serve.hostLog().constData();

    // A new page starts with nothing of the old one's: its key is not open, so its decode fails.
    BridgeClient next(serve.origin());
    ASSERT_TRUE(next.open(serve.webSocketUrl()));
    next.initialize();
    EXPECT_EQ(next.call(QStringLiteral("WebZtDecode"), {envelope, kSm4Ecb}), QJsonValue(QStringLiteral("false")));
    ASSERT_TRUE(serve.stop(SIGTERM));
}
