#include "session_steps.h"

#include "console.h"
#include "failure_diagnosis.h"
#include "device_choice.h"

#include "core/pin_wipe.h"
#include "key/driver_answers.h"

namespace zthost::cli {

std::unique_ptr<HostSession> startHost(const std::optional<SessionOptions> &options)
{
    if (!options)
        return nullptr;
    QString error;
    std::unique_ptr<HostSession> session = HostSession::start(*options, &error);
    if (!session)
        printError(error);
    return session;
}

bool openKey(HostSession &session)
{
    if (!checkDeviceChoice(session))
        return false;
    const Answer opened = session.call(QStringLiteral("WebOpenKey"));
    if (!opened.succeeded) {
        printError(opened.failure);
        printDiagnosis(session);
        return false;
    }
    announceDeviceInUse(session);
    return true;
}

bool verifyPin(HostSession &session, QString &pin)
{
    QVariantList arguments{pin};
    const Answer verified = session.call(QStringLiteral("WebVerifyPin"), arguments);
    arguments.clear();
    wipePin(pin);
    if (!verified.succeeded) {
        printError(verified.failure);
        printDiagnosis(session);
    }
    return verified.succeeded;
}

void printDiagnosis(HostSession &session, const QByteArray &envelopeDer)
{
    DiagnosisContext context;
    context.envelopeDer = envelopeDer;
    context.keyCertificate = [&session] {
        // The failed call's message is printed already, so another call may set a new one.
        const Invocation certificate = session.invoke(QStringLiteral("WebGetCertData"), {QString()});
        const QString text = certificate.value.toString();
        if (!certificate.called || text == QLatin1String("false"))
            return QByteArray();
        return QByteArray::fromBase64(text.toLatin1());
    };
    const QString diagnosis = diagnoseFailure(session.driverAnswers(), context);
    if (!diagnosis.isEmpty())
        printError(QStringLiteral("diagnosis: ") + diagnosis);
}

ExitCode failed(const QString &message)
{
    printError(message);
    return ExitCode::Failure;
}

} // namespace zthost::cli
