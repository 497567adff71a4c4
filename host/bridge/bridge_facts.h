#pragma once

#include <QObject>
#include <QString>

namespace zthost::bridge {

// What a page may know before it sends anything, published on the channel as `bridge`: the
// largest message it may send, the bridge's mode and the host's version. Constant properties
// only; the message gate lets no call or property write reach it.
class BridgeFacts : public QObject
{
    Q_OBJECT
    Q_PROPERTY(double maxMessageBytes READ maxMessageBytes CONSTANT)
    Q_PROPERTY(QString mode READ mode CONSTANT)
    Q_PROPERTY(QString version READ version CONSTANT)

public:
    static constexpr const char *kObjectId = "bridge";

    BridgeFacts(qint64 maxMessageBytes, QString mode, QObject *parent = nullptr);

    // A JSON number: the page reads it as one.
    double maxMessageBytes() const { return double(m_maxMessageBytes); }
    QString mode() const { return m_mode; }
    // The host's version, e.g. "1.0.0".
    static QString version();

private:
    qint64 m_maxMessageBytes;
    QString m_mode;
};

} // namespace zthost::bridge
