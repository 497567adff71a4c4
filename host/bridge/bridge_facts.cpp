#include "bridge/bridge_facts.h"

namespace zthost::bridge {

BridgeFacts::BridgeFacts(qint64 maxMessageBytes, QString mode, QObject *parent)
    : QObject(parent), m_maxMessageBytes(maxMessageBytes), m_mode(std::move(mode))
{
    setObjectName(QLatin1String(kObjectId));
}

QString BridgeFacts::version()
{
    return QStringLiteral(ZTHOST_VERSION);
}

} // namespace zthost::bridge
