#include "session_steps.h"

#include "console.h"
#include "device_choice.h"

#include "core/pin_wipe.h"

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
    if (!verified.succeeded)
        printError(verified.failure);
    return verified.succeeded;
}

ExitCode failed(const QString &message)
{
    printError(message);
    return ExitCode::Failure;
}

} // namespace zthost::cli
