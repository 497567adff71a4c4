// `zthost serve` as a process: the real plug-in on a software key, a page's whole road through
// the bridge, the PIN kept out of every log, and a clean stop on SIGTERM and SIGINT.

#include "bridge_client.h"
#include "serve_process.h"

#include <QCoreApplication>
#include <QFile>
#include <QUrlQuery>

#include <gtest/gtest.h>

#include <csignal>

namespace {

const QString kUserPin = QStringLiteral("serve-PIN-58213");
const QString kWrongPin = QStringLiteral("serve-WRONG-90417");
const QString kWrongPinMessage = QStringLiteral("您输入的电子钥匙盘密码错误，请重新输入!");
constexpr qulonglong kSm4Ecb = 0x401;

class ServeTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(serve.isValid());
        QString failure;
        ASSERT_TRUE(serve.makeKey(kUserPin, &failure)) << qPrintable(failure);
    }

    ServeProcess serve;
};

} // namespace

TEST_F(ServeTest, opensAnEnvelopeThroughTheBridgeAndStopsOnSigterm)
{
    QByteArray certificate;
    QString failure;
    ASSERT_TRUE(serve.runTool({QStringLiteral("cert"), QStringLiteral("--out"), serve.path("cert.b64")},
                              &certificate, &failure))
        << qPrintable(failure);
    const QByteArray plaintext = "a letter for the key, 你好";
    QFile content(serve.path("content.txt"));
    ASSERT_TRUE(content.open(QIODevice::WriteOnly));
    content.write(plaintext);
    content.close();
    QByteArray unused;
    ASSERT_TRUE(serve.runTool({QStringLiteral("encrypt"), QStringLiteral("--cert"), serve.path("cert.b64"),
                               QStringLiteral("--in"), serve.path("content.txt"), QStringLiteral("--out"),
                               serve.path("envelope.b64")},
                              &unused, &failure))
        << qPrintable(failure);
    QFile envelopeFile(serve.path("envelope.b64"));
    ASSERT_TRUE(envelopeFile.open(QIODevice::ReadOnly));
    const QString envelope = QString::fromLatin1(envelopeFile.readAll().trimmed());
    QFile certificateFile(serve.path("cert.b64"));
    ASSERT_TRUE(certificateFile.open(QIODevice::ReadOnly));
    const QString certificateText = QString::fromLatin1(certificateFile.readAll().trimmed());

    ASSERT_TRUE(serve.start({}, &failure)) << qPrintable(failure);
    EXPECT_EQ(serve.pageUrl().host(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(QUrlQuery(serve.pageUrl()).queryItemValue(QStringLiteral("token")).size(), 43);

    {
        BridgeClient page(serve.origin());
        ASSERT_TRUE(page.open(serve.webSocketUrl()));
        page.initialize();
        EXPECT_EQ(page.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
        EXPECT_EQ(page.call(QStringLiteral("WebVerifyPin"), {kWrongPin}), QJsonValue(false));
        EXPECT_EQ(page.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(kWrongPinMessage));
        EXPECT_EQ(page.call(QStringLiteral("WebVerifyPin"), {kUserPin}), QJsonValue(true));
        EXPECT_EQ(page.call(QStringLiteral("WebGetCertData"), {"1"}), QJsonValue(certificateText));
        EXPECT_EQ(page.call(QStringLiteral("WebZtDecode"), {envelope, double(kSm4Ecb)}),
                  QJsonValue(QString::fromLatin1(plaintext.toBase64())));
        EXPECT_EQ(page.call(QStringLiteral("WebCloseKey")), QJsonValue(true));

        // A page of another origin never gets in, token or not.
        BridgeClient foreign(QStringLiteral("http://attacker.example"));
        EXPECT_FALSE(foreign.open(serve.webSocketUrl()));
    }

    ASSERT_TRUE(serve.stop(SIGTERM));
    EXPECT_EQ(serve.process().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(serve.process().exitCode(), 0);
    EXPECT_TRUE(serve.standardError().contains("zthost serve: stopped (SIGTERM)"))
        << serve.standardError().constData();

    const QByteArray logs = serve.allLogs();
    // The logs were on: the plug-in's trace and the bridge's lines are there.
    EXPECT_TRUE(logs.contains("WebVerifyPin")) << logs.right(2000).constData();
    EXPECT_TRUE(logs.contains("bridge: a page connected"));
    EXPECT_FALSE(logs.contains(kUserPin.toUtf8()));
    EXPECT_FALSE(logs.contains(kWrongPin.toUtf8()));
}

TEST_F(ServeTest, stopsOnSigintWithAPageConnected)
{
    QString failure;
    ASSERT_TRUE(serve.start({}, &failure)) << qPrintable(failure);
    BridgeClient page(serve.origin());
    ASSERT_TRUE(page.open(serve.webSocketUrl()));
    page.initialize();
    EXPECT_EQ(page.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    ASSERT_TRUE(serve.stop(SIGINT));
    EXPECT_EQ(serve.process().exitCode(), 0);
    EXPECT_TRUE(serve.standardError().contains("zthost serve: stopped (SIGINT)"))
        << serve.standardError().constData();
    EXPECT_TRUE(page.waitForDisconnected());
}

TEST_F(ServeTest, refusesToListenBeyondLoopback)
{
    for (const char *address : {"0.0.0.0", "::", "192.168.1.10", "localhost6"}) {
        SCOPED_TRACE(address);
        QProcess serveProcess;
        serveProcess.start(QStringLiteral(ZTHOST_PATH),
                           {QStringLiteral("serve"), QStringLiteral("--listen"), QLatin1String(address)});
        ASSERT_TRUE(serveProcess.waitForFinished(15000));
        EXPECT_EQ(serveProcess.exitCode(), 2);
        EXPECT_TRUE(serveProcess.readAllStandardError().contains("127.0.0.1 only"));
    }
}
