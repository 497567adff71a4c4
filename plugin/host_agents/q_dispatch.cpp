#include "q_dispatch.h"

#include "accepted_parameter_types.h"
#include "log_file.h"

#include <QMetaMethod>
#include <QMetaObject>
#include <QTime>

#include <memory>

namespace {
const char kCoreLogFolder[] = "/ardlow";
const char kCoreLogFile[] = "/penwick_core.log";

QByteArray coreLogStamp()
{
    return QTime::currentTime().toString(Qt::TextDate).toUtf8();
}
} // namespace

Q_Dispatch::Q_Dispatch(QObject *target, QObject *parent)
    : QObject(parent), m_logDir(QString()), m_target(target)
{
    setObjectName(QStringLiteral("Agent"));
    m_logDir.setPath(QDir::tempPath() + QLatin1String(kCoreLogFolder));
}

Q_Dispatch::~Q_Dispatch() = default;

void Q_Dispatch::invokeHelper(QString methodName, void *result, ...)
{
    va_list args;
    va_start(args, result);
    invokeHelperV(methodName, result, args);
    va_end(args);
}

void Q_Dispatch::invokeHelperV(QString methodName, void *result, va_list args)
{
    // Log lines show the name as the caller gave it; only the lookup key is trimmed.
    Corelog(QLatin1String("methodName=") + methodName);
    if (!m_target)
        return;

    const QMetaObject *meta = m_target->metaObject();
    const QString trimmed = methodName.trimmed();
    // The first method whose signature starts with "<name>(" is the one called, so "open" never
    // matches "openContainer(...)". A signature is its name up to the first "(", so comparing the
    // names finds the same method; name() views the meta-object's own string data, where
    // building each signature would cost allocations per method scanned. No index is cached:
    // a host may hand out objects of any class.
    int index = -1;
    if (!trimmed.isEmpty()) {
        for (int i = 0; i < meta->methodCount(); ++i) {
            const QByteArray name = meta->method(i).name();
            if (trimmed == QLatin1String(name.constData(), name.size())) {
                index = i;
                break;
            }
        }
    }
    if (index < 0) {
        Corelog(QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt"));
        return;
    }

    const QList<QByteArray> parameterTypes = meta->method(index).parameterTypes();
    const int count = parameterTypes.size();
    std::unique_ptr<void *[]> argv(new void *[count + 1]);

    // The count is logged as the one character whose code it is, as the host's log reader
    // expects. With no parameters that character is NUL, which ends the printed text, so the
    // line loses its newline and the next line continues it.
    Corelog(QLatin1String("methodName=") + methodName + QLatin1String("::paramCount=")
            + QString(QChar(count)));

    for (int k = 1; k <= count; ++k) {
        const QByteArray &typeName = parameterTypes.at(k - 1);
        Corelog(QLatin1String("paramTypeName=") + QString::fromLatin1(typeName));
        if (!isAcceptedParameterType(typeName)) {
            Corelog(QStringLiteral("参数错误"));
            return;
        }
        argv[k] = va_arg(args, void *);
    }
    argv[0] = result;

    Corelog(QStringLiteral("QMetaObject::metacall call in"));
    QMetaObject::metacall(m_target, QMetaObject::InvokeMetaMethod, index, argv.get());
    Corelog(QStringLiteral("QMetaObject::metacall call end"));
}

void Q_Dispatch::Corelog(QString message)
{
    appendLogLine(m_logDir.path(), QLatin1String(kCoreLogFile), coreLogStamp, ": ", message);
}
