#include "bridge/scriptable_facade.h"

#include "core/pin_wipe.h"
#include "session/scriptable_calls.h"
#include "session/scriptable_method.h"

namespace zthost::bridge {

namespace {
const QString kFailureText = QStringLiteral("false");
} // namespace

ScriptableFacade::ScriptableFacade(ScriptableCalls &calls, QObject *parent)
    : QObject(parent), m_calls(calls)
{
}

const QStringList &ScriptableFacade::methodNames()
{
    static const QStringList names = [] {
        QStringList list;
        for (const char *signature : ScriptableMethods::kSignatures) {
            const QString text = QLatin1String(signature);
            list << text.left(text.indexOf(QLatin1Char('(')));
        }
        return list;
    }();
    return names;
}

bool ScriptableFacade::callBool(const QString &method, const QVariantList &arguments)
{
    const Invocation invocation = m_calls.invoke(method, arguments);
    noteFailure(invocation);
    return invocation.called && invocation.value.toBool();
}

QString ScriptableFacade::callString(const QString &method, const QVariantList &arguments,
                                     const QString &failure)
{
    const Invocation invocation = m_calls.invoke(method, arguments);
    noteFailure(invocation);
    return invocation.called ? invocation.value.toString() : failure;
}

void ScriptableFacade::noteFailure(const Invocation &invocation)
{
    if (!invocation.called) {
        // The library was not reached; its message would be another call's.
        m_lastError = invocation.error;
        return;
    }
    if (!isFailureAnswer(invocation.value))
        return;
    const Invocation message = m_calls.invoke(QStringLiteral("WebGetLastErrorMsg"), {});
    m_lastError = message.called ? message.value.toString()
                                 : QStringLiteral("(WebGetLastErrorMsg could not be called)");
}

bool ScriptableFacade::WebOpenKey()
{
    return callBool(QStringLiteral("WebOpenKey"));
}

bool ScriptableFacade::WebCloseKey()
{
    return callBool(QStringLiteral("WebCloseKey"));
}

bool ScriptableFacade::WebVerifyPin(QString pinCode)
{
    QVariantList arguments{pinCode};
    const bool verified = callBool(QStringLiteral("WebVerifyPin"), arguments);
    arguments.clear();
    // Shared with the web channel's copy of the message, so only released (core/pin_wipe.h).
    wipePin(pinCode);
    return verified;
}

QString ScriptableFacade::WebGetCertData(QString certtype)
{
    return callString(QStringLiteral("WebGetCertData"), {certtype}, kFailureText);
}

QString ScriptableFacade::WebZtEncode(QString bas64SrcData, QString certData, quint64 ulAlgID)
{
    return callString(QStringLiteral("WebZtEncode"),
                      {bas64SrcData, certData, QVariant::fromValue<qulonglong>(ulAlgID)},
                      kFailureText);
}

QString ScriptableFacade::WebZtDecode(QString bas64EncData, quint64 ulAlgID)
{
    return callString(QStringLiteral("WebZtDecode"),
                      {bas64EncData, QVariant::fromValue<qulonglong>(ulAlgID)}, kFailureText);
}

QString ScriptableFacade::WebGetLastErrorMsg()
{
    return m_lastError;
}

} // namespace zthost::bridge
