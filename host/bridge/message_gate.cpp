#include "bridge/message_gate.h"

#include <QJsonArray>
#include <QMetaType>

#include <climits>
#include <cmath>

namespace zthost::bridge {

namespace {

// JavaScript numbers hold integers exactly up to 2^53; a larger one has already lost digits.
constexpr double kMaxExactInteger = 9007199254740992.0;

bool isIntegralNumber(double value)
{
    return value == value && value >= 0 && value <= kMaxExactInteger && std::floor(value) == value;
}

bool isCallId(const QJsonValue &id)
{
    return id.isDouble() || id.isString();
}

bool isWholeNumber(const QJsonValue &value)
{
    return value.isDouble() && isIntegralNumber(value.toDouble()) && value.toDouble() <= INT_MAX;
}

// Qt's channel prints a message it cannot use, whole, page text and all: only the fields
// qwebchannel.js sends get through.
bool hasOnlyFields(const QJsonObject &message, std::initializer_list<const char *> fields)
{
    for (auto it = message.constBegin(); it != message.constEnd(); ++it) {
        bool known = false;
        for (const char *field : fields)
            known = known || it.key() == QLatin1String(field);
        if (!known)
            return false;
    }
    return true;
}

} // namespace

MessageGate::MessageGate(const QMetaObject *meta, QString objectId,
                         const QStringList &allowedMethods, int maxArgumentChars)
    : m_objectId(std::move(objectId)), m_maxArgumentChars(maxArgumentChars)
{
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.methodType() != QMetaMethod::Method || method.access() != QMetaMethod::Public
            || !allowedMethods.contains(QString::fromLatin1(method.name())))
            continue;
        const QJsonValue failure = method.returnType() == QMetaType::Bool
                                       ? QJsonValue(false)
                                       : QJsonValue(QStringLiteral("false"));
        m_allowed.insert(i, Allowed{method, failure});
    }
}

MessageGate::Verdict MessageGate::judge(const QJsonObject &message) const
{
    Verdict verdict;
    const QJsonValue type = message.value(QLatin1String("type"));
    if (!isWholeNumber(type)) {
        verdict.reason = QStringLiteral("a message without a whole-number type");
        return verdict;
    }
    switch (int(type.toDouble())) {
    case Init:
        // {"type":3,"id":N}; without an id Qt prints the whole message.
        if (!isWholeNumber(message.value(QLatin1String("id"))) || !hasOnlyFields(message, {"type", "id"})) {
            verdict.reason = QStringLiteral("a handshake that is not {type, id}");
            return verdict;
        }
        verdict.kind = Verdict::Kind::Forward;
        return verdict;
    case Idle:
        if (!hasOnlyFields(message, {"type"})) {
            verdict.reason = QStringLiteral("an idle notice with more than its type");
            return verdict;
        }
        verdict.kind = Verdict::Kind::Forward;
        return verdict;
    case InvokeMethod:
        if (!hasOnlyFields(message, {"type", "object", "method", "args", "id"})) {
            verdict.reason = QStringLiteral("a call with fields the channel does not use");
            return verdict;
        }
        return judgeCall(message);
    default:
        verdict.reason = QStringLiteral("a message of type %1, which pages may not send")
                             .arg(type.toDouble());
        return verdict;
    }
}

MessageGate::Verdict MessageGate::judgeCall(const QJsonObject &message) const
{
    Verdict verdict;
    if (message.value(QLatin1String("object")).toString() != m_objectId) {
        verdict.reason = QStringLiteral("a call to an object other than %1").arg(m_objectId);
        return verdict;
    }
    // qwebchannel.js names a method by its index when the page used a full signature
    // ("WebOpenKey()"), by its name otherwise.
    const QJsonValue methodValue = message.value(QLatin1String("method"));
    auto allowed = m_allowed.constEnd();
    if (methodValue.isDouble()) {
        const double number = methodValue.toDouble();
        if (isIntegralNumber(number) && number <= INT_MAX)
            allowed = m_allowed.constFind(int(number));
    } else if (methodValue.isString()) {
        const QByteArray name = methodValue.toString().toLatin1();
        for (auto it = m_allowed.constBegin(); it != m_allowed.constEnd(); ++it) {
            if (it->method.name() == name) {
                allowed = it;
                break;
            }
        }
    }
    if (allowed == m_allowed.constEnd()) {
        verdict.reason = QStringLiteral("a call of a method of %1 that pages may not call").arg(m_objectId);
        return verdict;
    }
    const QJsonValue id = message.value(QLatin1String("id"));
    if (!isCallId(id)) {
        verdict.reason = QStringLiteral("a call without an id");
        return verdict;
    }

    const QMetaMethod &method = allowed->method;
    const QString name = QString::fromLatin1(method.name());
    QString problem;
    const QJsonValue args = message.value(QLatin1String("args"));
    if (!args.isArray()) {
        problem = QStringLiteral("its arguments are not an array");
    } else if (args.toArray().size() != method.parameterCount()) {
        problem = QStringLiteral("it takes %1 arguments, %2 given")
                      .arg(method.parameterCount())
                      .arg(args.toArray().size());
    } else {
        const QJsonArray list = args.toArray();
        for (int i = 0; i < list.size() && problem.isEmpty(); ++i)
            problem = argumentProblem(method, i, list.at(i));
    }
    if (problem.isEmpty()) {
        verdict.kind = Verdict::Kind::Forward;
        return verdict;
    }
    verdict.kind = Verdict::Kind::Answer;
    verdict.reason = QStringLiteral("%1 answered with its failure value: %2").arg(name, problem);
    verdict.answer = QJsonObject{{QStringLiteral("type"), Response},
                                 {QStringLiteral("id"), id},
                                 {QStringLiteral("data"), allowed->failureValue}};
    return verdict;
}

QString MessageGate::argumentProblem(const QMetaMethod &method, int index,
                                     const QJsonValue &value) const
{
    const QString what = QStringLiteral("argument %1 (%2)")
                             .arg(index + 1)
                             .arg(QString::fromLatin1(method.parameterNames().value(index)));
    switch (method.parameterType(index)) {
    case QMetaType::QString:
        if (!value.isString())
            return what + QStringLiteral(" is not a string");
        if (value.toString().size() > m_maxArgumentChars)
            return what + QStringLiteral(" has %1 characters, more than %2")
                              .arg(value.toString().size())
                              .arg(m_maxArgumentChars);
        return QString();
    case QMetaType::ULongLong:
        if (!value.isDouble() || !isIntegralNumber(value.toDouble()))
            return what + QStringLiteral(" is not a whole number from 0 to 2^53");
        return QString();
    default:
        return what + QStringLiteral(" is of a type pages cannot pass");
    }
}

} // namespace zthost::bridge
