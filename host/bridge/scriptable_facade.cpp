#include "bridge/scriptable_facade.h"

#include <QMetaObject>

namespace zthost::bridge {

namespace {
const QString kFailureText = QStringLiteral("false");
} // namespace

ScriptableFacade::ScriptableFacade(QObject *target, std::function<void()> afterEachCall,
                                   QObject *parent)
    : QObject(parent), m_target(target), m_afterEachCall(std::move(afterEachCall))
{
}

const QStringList &ScriptableFacade::methodNames()
{
    static const QStringList names = {
        QStringLiteral("WebOpenKey"),     QStringLiteral("WebCloseKey"),
        QStringLiteral("WebVerifyPin"),   QStringLiteral("WebGetCertData"),
        QStringLiteral("WebZtEncode"),    QStringLiteral("WebZtDecode"),
        QStringLiteral("WebGetLastErrorMsg"),
    };
    return names;
}

void ScriptableFacade::afterCall()
{
    // The plug-in holds none of the per-operation components once a call has returned.
    if (m_afterEachCall)
        m_afterEachCall();
}

bool ScriptableFacade::WebOpenKey()
{
    bool answer = false;
    if (!m_target || !QMetaObject::invokeMethod(m_target, "WebOpenKey", Qt::DirectConnection,
                                                Q_RETURN_ARG(bool, answer)))
        answer = false;
    afterCall();
    return answer;
}

bool ScriptableFacade::WebCloseKey()
{
    bool answer = false;
    if (!m_target || !QMetaObject::invokeMethod(m_target, "WebCloseKey", Qt::DirectConnection,
                                                Q_RETURN_ARG(bool, answer)))
        answer = false;
    afterCall();
    return answer;
}

bool ScriptableFacade::WebVerifyPin(QString pinCode)
{
    bool answer = false;
    if (!m_target || !QMetaObject::invokeMethod(m_target, "WebVerifyPin", Qt::DirectConnection,
                                                Q_RETURN_ARG(bool, answer),
                                                Q_ARG(QString, pinCode)))
        answer = false;
    // Our copy of the PIN goes now rather than whenever the allocator reuses it.
    pinCode.fill(QLatin1Char('\0'));
    afterCall();
    return answer;
}

QString ScriptableFacade::WebGetCertData(QString certtype)
{
    QString answer;
    if (!m_target || !QMetaObject::invokeMethod(m_target, "WebGetCertData", Qt::DirectConnection,
                                                Q_RETURN_ARG(QString, answer),
                                                Q_ARG(QString, certtype)))
        answer = kFailureText;
    afterCall();
    return answer;
}

QString ScriptableFacade::WebZtEncode(QString bas64SrcData, QString certData, quint64 ulAlgID)
{
    QString answer;
    if (!m_target || !QMetaObject::invokeMethod(m_target, "WebZtEncode", Qt::DirectConnection,
                                                Q_RETURN_ARG(QString, answer),
                                                Q_ARG(QString, bas64SrcData),
                                                Q_ARG(QString, certData), Q_ARG(quint64, ulAlgID)))
        answer = kFailureText;
    afterCall();
    return answer;
}

QString ScriptableFacade::WebZtDecode(QString bas64EncData, quint64 ulAlgID)
{
    QString answer;
    if (!m_target || !QMetaObject::invokeMethod(m_target, "WebZtDecode", Qt::DirectConnection,
                                                Q_RETURN_ARG(QString, answer),
                                                Q_ARG(QString, bas64EncData),
                                                Q_ARG(quint64, ulAlgID)))
        answer = kFailureText;
    afterCall();
    return answer;
}

QString ScriptableFacade::WebGetLastErrorMsg()
{
    QString answer;
    if (!m_target || !QMetaObject::invokeMethod(m_target, "WebGetLastErrorMsg",
                                                Qt::DirectConnection,
                                                Q_RETURN_ARG(QString, answer)))
        answer = QString();
    afterCall();
    return answer;
}

} // namespace zthost::bridge
