#include "scriptable_method.h"

#include "core/qt_compat.h"

#include <QMetaObject>
#include <QMetaType>

namespace zthost {

namespace {
// QMetaMethod::invoke takes at most ten arguments.
constexpr int kMaxArguments = 10;

QString describe(const QMetaMethod &method)
{
    QStringList parameters;
    const QList<QByteArray> types = method.parameterTypes();
    const QList<QByteArray> names = method.parameterNames();
    for (int i = 0; i < types.size(); ++i) {
        parameters << QString::fromLatin1(types.at(i) + (names.value(i).isEmpty() ? QByteArray()
                                                                                  : " " + names.at(i)));
    }
    return QString::fromLatin1(method.name()) + QLatin1Char('(') + parameters.join(QLatin1String(", "))
           + QLatin1Char(')');
}

bool convertBool(const QString &text, bool *value)
{
    const QString lower = text.trimmed().toLower();
    if (lower == QLatin1String("true") || lower == QLatin1String("1")) {
        *value = true;
        return true;
    }
    if (lower == QLatin1String("false") || lower == QLatin1String("0")) {
        *value = false;
        return true;
    }
    return false;
}

bool convertOne(int type, const QString &text, QVariant *value)
{
    bool ok = false;
    switch (type) {
    case QMetaType::QString:
        *value = text;
        return true;
    case QMetaType::ULongLong:
        *value = QVariant::fromValue<qulonglong>(text.trimmed().toULongLong(&ok, 0));
        return ok;
    case QMetaType::LongLong:
        *value = QVariant::fromValue<qlonglong>(text.trimmed().toLongLong(&ok, 0));
        return ok;
    case QMetaType::UInt:
        *value = QVariant::fromValue<uint>(text.trimmed().toUInt(&ok, 0));
        return ok;
    case QMetaType::Int:
        *value = QVariant::fromValue<int>(text.trimmed().toInt(&ok, 0));
        return ok;
    case QMetaType::ULong:
        *value = QVariant::fromValue<ulong>(text.trimmed().toULong(&ok, 0));
        return ok;
    case QMetaType::Long:
        *value = QVariant::fromValue<long>(text.trimmed().toLong(&ok, 0));
        return ok;
    case QMetaType::Bool: {
        bool flag = false;
        ok = convertBool(text, &flag);
        *value = flag;
        return ok;
    }
    case QMetaType::QByteArray:
        *value = text.toUtf8();
        return true;
    default:
        return false;
    }
}
} // namespace

QStringList invokableSignatures(const QObject *object)
{
    QStringList signatures;
    const QMetaObject *meta = object->metaObject();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.methodType() == QMetaMethod::Method && method.access() == QMetaMethod::Public)
            signatures << describe(method);
    }
    return signatures;
}

QMetaMethod findInvokable(const QObject *object, const QString &name)
{
    const QMetaObject *meta = object->metaObject();
    const QByteArray wanted = name.toLatin1();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.methodType() == QMetaMethod::Method && method.access() == QMetaMethod::Public
            && method.name() == wanted)
            return method;
    }
    return QMetaMethod();
}

bool convertArguments(const QMetaMethod &method, const QStringList &texts, QVariantList *values,
                      QString *error)
{
    const int expected = method.parameterCount();
    if (texts.size() != expected) {
        *error = QStringLiteral("%1 takes %2 argument%3, %4 given")
                     .arg(describe(method))
                     .arg(expected)
                     .arg(expected == 1 ? QString() : QStringLiteral("s"))
                     .arg(texts.size());
        return false;
    }
    if (expected > kMaxArguments) {
        *error = QStringLiteral("%1 takes %2 arguments, more than the %3 a call can pass")
                     .arg(QString::fromLatin1(method.name()))
                     .arg(expected)
                     .arg(kMaxArguments);
        return false;
    }
    values->clear();
    for (int i = 0; i < expected; ++i) {
        QVariant value;
        if (!convertOne(method.parameterType(i), texts.at(i), &value)) {
            *error = QStringLiteral("argument %1 (%2) of %3 is not a %4: \"%5\"")
                         .arg(i + 1)
                         .arg(QString::fromLatin1(method.parameterNames().value(i)),
                              QString::fromLatin1(method.name()),
                              QString::fromLatin1(method.parameterTypes().value(i)), texts.at(i));
            return false;
        }
        values->append(value);
    }
    return true;
}

bool invoke(QObject *object, const QMetaMethod &method, const QVariantList &arguments,
            QVariant *answer, QString *error)
{
    if (arguments.size() != method.parameterCount() || arguments.size() > kMaxArguments) {
        *error = QStringLiteral("%1 takes %2 arguments, %3 given")
                     .arg(QString::fromLatin1(method.name()))
                     .arg(method.parameterCount())
                     .arg(arguments.size());
        return false;
    }
    // Each argument must be of the parameter's exact type: the generic arguments below hand
    // the method raw pointers to the values.
    QVariantList values = arguments;
    for (int i = 0; i < values.size(); ++i) {
        if (!convertToType(values[i], method.parameterType(i))) {
            *error = QStringLiteral("argument %1 of %2 cannot be made a %3")
                         .arg(i + 1)
                         .arg(QString::fromLatin1(method.name()),
                              QString::fromLatin1(method.parameterTypes().value(i)));
            return false;
        }
    }
    QGenericArgument generic[kMaxArguments];
    for (int i = 0; i < values.size(); ++i)
        generic[i] = QGenericArgument(method.parameterTypes().at(i).constData(), values[i].constData());

    const int returnType = method.returnType();
    QVariant result;
    QGenericReturnArgument returned;
    if (returnType != QMetaType::Void) {
        result = defaultValueOfType(returnType);
        returned = QGenericReturnArgument(method.typeName(), result.data());
    }
    const bool called =
        method.invoke(object, Qt::DirectConnection, returned, generic[0], generic[1], generic[2],
                      generic[3], generic[4], generic[5], generic[6], generic[7], generic[8],
                      generic[9]);
    if (!called) {
        *error = QStringLiteral("Qt refused to call %1").arg(QString::fromLatin1(method.methodSignature()));
        return false;
    }
    *answer = result;
    return true;
}

QString answerText(const QVariant &answer)
{
    if (!answer.isValid())
        return QString();
    if (answer.userType() == QMetaType::Bool)
        return answer.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    return answer.toString();
}

bool isFailureAnswer(const QVariant &answer)
{
    if (answer.userType() == QMetaType::Bool)
        return !answer.toBool();
    if (answer.userType() == QMetaType::QString)
        return answer.toString() == QLatin1String("false");
    return false;
}

} // namespace zthost
