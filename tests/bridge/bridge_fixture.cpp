#include "bridge_fixture.h"

#include <QFile>
#include <QUrlQuery>

void BridgeTest::SetUp()
{
    ASSERT_TRUE(m_dir.isValid());
    QString error;
    ASSERT_TRUE(m_log.setFile(m_dir.filePath(QStringLiteral("host.log")), &error)) << qPrintable(error);
    m_log.setThreshold(zthost::LogLevel::Debug);
}

void BridgeTest::TearDown()
{
    bridge.reset();
}

void BridgeTest::startBridge(zthost::bridge::BridgeOptions options)
{
    options.webRoot = QStringLiteral(ZT_WEB_DIR);
    bridge = std::make_unique<zthost::bridge::WebBridge>(calls, options, &m_log);
    QString error;
    ASSERT_TRUE(bridge->start(&error)) << qPrintable(error);
}

QUrl BridgeTest::webSocketUrlWithToken(const QString &token) const
{
    QUrl url = bridge->webSocketUrl();
    QUrlQuery query;
    if (!token.isEmpty())
        query.addQueryItem(QStringLiteral("token"), token);
    url.setQuery(query);
    return url;
}

QString BridgeTest::logText() const
{
    QFile file(m_dir.filePath(QStringLiteral("host.log")));
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}
