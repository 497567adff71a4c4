// The web channel as a page sees it: the seven methods forwarded one at a time, nothing else of
// the published object reachable, bad arguments answered with failure values, PINs kept out of
// every log.

#include "bridge_client.h"
#include "bridge_fixture.h"

#include <QCoreApplication>
#include <QPointer>


namespace {

QJsonObject facadeDescription(BridgeClient &client)
{
    return client.initialize().value(QLatin1String("ZtCryptographic")).toObject();
}

// Everything Qt's message handler receives while alive.
class QtMessageCapture
{
public:
    QtMessageCapture()
    {
        s_text.clear();
        m_previous = qInstallMessageHandler(&QtMessageCapture::handle);
    }
    ~QtMessageCapture() { qInstallMessageHandler(m_previous); }
    QString text() const { return s_text; }

private:
    static void handle(QtMsgType, const QMessageLogContext &, const QString &message)
    {
        s_text += message + QLatin1Char('\n');
    }
    static QString s_text;
    QtMessageHandler m_previous = nullptr;
};
QString QtMessageCapture::s_text;

} // namespace

TEST_F(BridgeTest, publishesTheSevenMethodsAndTheBridgesFacts)
{
    zthost::bridge::BridgeOptions options;
    options.maxMessageBytes = 65536;
    startBridge(options);
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    const QJsonObject objects = client.initialize();
    EXPECT_EQ(objects.keys(), (QStringList{QStringLiteral("ZtCryptographic"), QStringLiteral("bridge")}));
    // What a page may know before it sends anything.
    EXPECT_EQ(BridgeClient::propertyValues(objects.value(QLatin1String("bridge")).toObject()),
              (QStringList{"maxMessageBytes=65536", "mode=token", "version=1.0.0"}));
    const QJsonObject description = objects.value(QLatin1String("ZtCryptographic")).toObject();
    for (const char *name : {"WebOpenKey", "WebCloseKey", "WebVerifyPin", "WebGetCertData",
                             "WebZtEncode", "WebZtDecode", "WebGetLastErrorMsg"}) {
        SCOPED_TRACE(name);
        EXPECT_GE(BridgeClient::methodIndex(description, QString::fromLatin1(name)), 0);
    }
}

TEST_F(BridgeTest, forwardsEachCallAndReclaimsAfterIt)
{
    startBridge();
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    client.initialize();
    EXPECT_EQ(client.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin"), {fake.rightPin}), QJsonValue(true));
    EXPECT_EQ(client.call(QStringLiteral("WebGetCertData"), {"1"}), QJsonValue(fake.certificate));
    EXPECT_EQ(client.call(QStringLiteral("WebZtEncode"), {"aGk=", "MIIB", 1025}), QJsonValue(QString()));
    EXPECT_EQ(client.call(QStringLiteral("WebZtDecode"), {"MIIenvelope", 1025}), QJsonValue(fake.plaintext));
    EXPECT_EQ(fake.decodeData, QStringLiteral("MIIenvelope"));
    EXPECT_EQ(fake.decodeAlgorithm, 1025u);
    // The page's own last failure, kept by the bridge: none yet, and the library is not asked.
    EXPECT_EQ(client.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(QString()));
    EXPECT_EQ(client.call(QStringLiteral("WebCloseKey")), QJsonValue(true));
    EXPECT_EQ(fake.calls, (QStringList{"WebOpenKey", "WebVerifyPin", "WebGetCertData", "WebZtEncode",
                                       "WebZtDecode", "WebCloseKey"}));
    EXPECT_EQ(callsReturned, 6);
}

TEST_F(BridgeTest, readsTheLastErrorRightAfterAFailingCallAndKeepsItForThePage)
{
    startBridge();
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    client.initialize();
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin"), {"wrong"}), QJsonValue(false));
    EXPECT_EQ(fake.calls, (QStringList{"WebVerifyPin", "WebGetLastErrorMsg"}));
    // Answered from what the bridge kept, even after the library's text moved on.
    fake.lastError = QStringLiteral("errorcode : [99]");
    EXPECT_EQ(client.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(QStringLiteral("wrong PIN")));
    EXPECT_EQ(client.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_EQ(client.call(QStringLiteral("WebGetLastErrorMsg")), QJsonValue(QStringLiteral("wrong PIN")));
    EXPECT_EQ(fake.calls, (QStringList{"WebVerifyPin", "WebGetLastErrorMsg", "WebOpenKey"}));
}

TEST_F(BridgeTest, forwardsACallByIndexAsWell)
{
    startBridge();
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    const int index = BridgeClient::methodIndex(facadeDescription(client), QStringLiteral("WebVerifyPin(QString)"));
    ASSERT_GE(index, 0);
    const int id = client.send(
        {{"type", 6}, {"object", "ZtCryptographic"}, {"method", index}, {"args", QJsonArray{"nope"}}});
    EXPECT_EQ(client.response(id), QJsonValue(false));
    // The failure's message is read at once, for the page to ask later.
    EXPECT_EQ(fake.calls, (QStringList{"WebVerifyPin", "WebGetLastErrorMsg"}));
}

TEST_F(BridgeTest, neitherRenamesNorDeletesThePublishedObject)
{
    startBridge();
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    // Each page's object is made when it connects.
    ASSERT_TRUE(waitUntil([&] { return bridge->publishedObjects().size() == 1; }));
    QPointer<QObject> published = bridge->publishedObjects().first();
    const QJsonObject description = facadeDescription(client);
    const int deleteLater = BridgeClient::methodIndex(description, QStringLiteral("deleteLater()"));
    const int destroyed = QObject::staticMetaObject.indexOfSignal("destroyed()");
    // Qt's web channel publishes what every QObject has; the gate is what keeps it out of reach.
    ASSERT_GE(deleteLater, 0);
    ASSERT_TRUE(description.value(QLatin1String("properties")).toArray().at(0).toArray().at(1)
                == QJsonValue(QStringLiteral("objectName")));

    QList<int> ids;
    ids << client.send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", deleteLater}, {"args", QJsonArray()}});
    ids << client.send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", "deleteLater"}, {"args", QJsonArray()}});
    ids << client.send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", "setObjectName"}, {"args", QJsonArray{"renamed"}}});
    ids << client.send({{"type", 9}, {"object", "ZtCryptographic"}, {"property", 0}, {"value", "renamed"}});
    ids << client.send({{"type", 7}, {"object", "ZtCryptographic"}, {"signal", destroyed}});
    ids << client.send({{"type", 6}, {"object", "transport"}, {"method", "deleteLater"}, {"args", QJsonArray()}});
    // The facts object takes no call and no write either.
    ids << client.send({{"type", 6}, {"object", "bridge"}, {"method", "deleteLater"}, {"args", QJsonArray()}});
    ids << client.send({{"type", 9}, {"object", "bridge"}, {"property", 1}, {"value", 1}});
    // Answered in order: once this one is back, none of the above ever will be.
    EXPECT_EQ(client.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    for (int id : ids) {
        SCOPED_TRACE(id);
        EXPECT_FALSE(client.response(id).has_value());
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_FALSE(published.isNull());
    EXPECT_EQ(published->objectName(), QStringLiteral("ZtCryptographic"));
    EXPECT_EQ(fake.calls, QStringList{QStringLiteral("WebOpenKey")});
    EXPECT_TRUE(client.isOpen());

    // A second page still sees the object under its name.
    BridgeClient second(origin());
    ASSERT_TRUE(second.open(webSocketUrl()));
    EXPECT_EQ(facadeDescription(second).value(QLatin1String("properties")).toArray().at(0).toArray().at(3),
              QJsonValue(QStringLiteral("ZtCryptographic")));
}

TEST_F(BridgeTest, answersBadArgumentsWithFailureValuesWithoutCalling)
{
    startBridge();
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    client.initialize();
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin"), {1234}), QJsonValue(false));
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin"), {QJsonObject{{"toString", "x"}}}), QJsonValue(false));
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin")), QJsonValue(false));
    EXPECT_EQ(client.call(QStringLiteral("WebOpenKey"), {"extra"}), QJsonValue(false));
    EXPECT_EQ(client.call(QStringLiteral("WebGetCertData"), {QJsonValue()}), QJsonValue(QStringLiteral("false")));
    EXPECT_EQ(client.call(QStringLiteral("WebZtDecode"), {"abc", "0x401"}), QJsonValue(QStringLiteral("false")));
    EXPECT_EQ(client.call(QStringLiteral("WebZtDecode"), {"abc", -5}), QJsonValue(QStringLiteral("false")));
    EXPECT_EQ(client.call(QStringLiteral("WebZtEncode"), {"abc", 3, 1025}), QJsonValue(QStringLiteral("false")));
    EXPECT_TRUE(fake.calls.isEmpty()) << qPrintable(fake.calls.join(QLatin1Char(',')));
    EXPECT_TRUE(client.isOpen());
}

TEST_F(BridgeTest, dropsTextThatIsNotAMessage)
{
    startBridge();
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    client.sendText(QStringLiteral("not json"));
    client.sendText(QStringLiteral("[1,2,3]"));
    client.socket().sendBinaryMessage("{\"type\":3,\"id\":1}");
    EXPECT_EQ(client.call(QStringLiteral("WebOpenKey")), QJsonValue(true));
    EXPECT_TRUE(logText().contains(QStringLiteral("not a JSON object")));
    EXPECT_TRUE(logText().contains(QStringLiteral("dropped a binary message")));
}

TEST_F(BridgeTest, aPageLeavingMidCallDoesNotDisturbTheNext)
{
    startBridge();
    auto leaving = std::make_unique<BridgeClient>(origin());
    ASSERT_TRUE(leaving->open(webSocketUrl()));
    leaving->initialize();
    // The page goes away while the key is still decrypting.
    fake.duringDecode = [&leaving] { leaving->socket().abort(); };
    leaving->send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", "WebZtDecode"}, {"args", QJsonArray{"abc", 1025}}});
    ASSERT_TRUE(waitUntil([&] { return fake.calls.contains(QStringLiteral("WebZtDecode")); }));
    fake.duringDecode = nullptr;
    ASSERT_TRUE(waitUntil([&] { return bridge->clientCount() == 0; }));
    leaving.reset();

    BridgeClient next(origin());
    ASSERT_TRUE(next.open(webSocketUrl()));
    next.initialize();
    EXPECT_EQ(next.call(QStringLiteral("WebZtDecode"), {"def", 1025}), QJsonValue(fake.plaintext));
    EXPECT_EQ(fake.decodeData, QStringLiteral("def"));
    // The leaving page's decode, its key closed as it left, the next page's decode.
    EXPECT_EQ(fake.calls, (QStringList{"WebZtDecode", "WebCloseKey", "WebZtDecode"}));
    EXPECT_EQ(callsReturned, 3);
}

TEST_F(BridgeTest, keepsThePinOutOfEveryLog)
{
    const QString pin = QStringLiteral("pin-4b1d-secret");
    QtMessageCapture qtMessages;
    startBridge();
    fake.rightPin = pin;
    BridgeClient client(origin());
    ASSERT_TRUE(client.open(webSocketUrl()));
    client.initialize();
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin"), {pin}), QJsonValue(true));
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin"), {pin + QStringLiteral("-wrong")}), QJsonValue(false));
    // The ways a PIN could reach a log through Qt's web channel: an argument that fails to
    // convert (Qt prints it), a debug message (Qt prints its data), a call of the wrong method.
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin"), {QJsonObject{{"pin", pin}}}), QJsonValue(false));
    EXPECT_EQ(client.call(QStringLiteral("WebVerifyPin"), {pin, pin}), QJsonValue(false));
    client.send({{"type", 5}, {"data", pin}});
    client.send({{"type", 6}, {"object", "ZtCryptographic"}, {"method", "deleteLater"}, {"args", QJsonArray{pin}}});
    client.send({{"type", 9}, {"object", "ZtCryptographic"}, {"property", 0}, {"value", pin}});
    client.sendText(QStringLiteral("{\"pin\": \"%1\"").arg(pin));
    EXPECT_EQ(client.call(QStringLiteral("WebOpenKey")), QJsonValue(true));

    const QString log = logText();
    EXPECT_TRUE(log.contains(QStringLiteral("dropped")));
    EXPECT_FALSE(log.contains(pin)) << qPrintable(log);
    EXPECT_FALSE(qtMessages.text().contains(pin)) << qPrintable(qtMessages.text());
}
