#pragma once

#include <QHash>
#include <QJsonObject>
#include <QMetaMethod>
#include <QString>

namespace zthost::bridge {

// Judges each message a page sends, before Qt's web channel sees it; reads untrusted JSON.
//
// Qt's web channel would let a page call any public method of a published object, including
// QObject's deleteLater, set its objectName, and would make a call even when an argument failed
// to convert (with a default value, after logging the argument: possibly a PIN), and it prints
// whole any message it cannot use. So only these pass, with a whole-number type and no field
// qwebchannel.js does not send: the handshake {type, id} with a whole-number id, the idle
// notice {type}, and calls of the seven allowed methods of the one published object, with
// exactly their parameters' JSON types. A call of an allowed method
// with bad arguments is answered here with that method's failure value; everything else is
// dropped unanswered.
class MessageGate
{
public:
    // The channel's message types, as qwebchannel.js numbers them.
    enum MessageType {
        Signal = 1,
        PropertyUpdate = 2,
        Init = 3,
        Idle = 4,
        Debug = 5,
        InvokeMethod = 6,
        ConnectToSignal = 7,
        DisconnectFromSignal = 8,
        SetProperty = 9,
        Response = 10,
    };

    // Larger argument texts are refused. The message size limit is the real bound; this one
    // keeps a single argument from being the whole of it.
    static constexpr int kDefaultMaxArgumentChars = 48 * 1024 * 1024;

    // `meta` is the published object's class, `objectId` the name it is published under,
    // `allowedMethods` the names of its methods a page may call; each must be declared once,
    // since a call may name its method rather than give its index.
    MessageGate(const QMetaObject *meta, QString objectId, const QStringList &allowedMethods,
                int maxArgumentChars = kDefaultMaxArgumentChars);

    struct Verdict
    {
        enum class Kind { Forward, Answer, Drop };
        Kind kind = Kind::Drop;
        QJsonObject answer;  // Answer: the response to send back
        // Answer and Drop: why, for the host log; never quotes an argument.
        QString reason;
    };

    Verdict judge(const QJsonObject &message) const;

private:
    struct Allowed
    {
        QMetaMethod method;
        QJsonValue failureValue;
    };

    Verdict judgeCall(const QJsonObject &message) const;
    // Empty when `value` fits parameter `index` of `method`, else what is wrong with it.
    QString argumentProblem(const QMetaMethod &method, int index, const QJsonValue &value) const;

    QString m_objectId;
    QHash<int, Allowed> m_allowed;  // by method index
    int m_maxArgumentChars;
};

} // namespace zthost::bridge
