#include "failure_diagnosis.h"

#include "certificate_identity.h"

#include "key/driver_answers.h"
#include "key/skf_errors.h"

#include <skf.h>

namespace zthost::cli {

namespace {

const char *pinName(const DriverFailure &failure)
{
    return failure.adminPin ? "administrator PIN" : "user PIN";
}

QString codeName(std::uint32_t code)
{
    return QLatin1String(describeSkfResult(code).name);
}

QString wrongRecipient(const DriverFailure &failure, const DiagnosisContext &context)
{
    CertificateIdentity recipient;
    if (context.envelopeDer.isEmpty() || !envelopeRecipient(context.envelopeDer, &recipient))
        return QString();
    CertificateIdentity own;
    const QByteArray certificate = context.keyCertificate ? context.keyCertificate() : QByteArray();
    if (certificate.isEmpty() || !certificateIdentity(certificate, &own)) {
        return QStringLiteral("key device \"%1\" could not open the envelope's session key (%2 "
                              "answered %3); the envelope was made for the certificate with %4")
            .arg(failure.device, failure.function, codeName(failure.code), recipient.text());
    }
    if (!recipient.sameAs(own)) {
        return QStringLiteral("the envelope was made for another certificate (%1); key device "
                              "\"%2\" holds the certificate with %3")
            .arg(recipient.text(), failure.device, own.text());
    }
    return QStringLiteral("the envelope names this key's certificate (%1), but key device \"%2\" "
                          "could not open its session key (%3 answered %4): the envelope is "
                          "damaged, or was sealed with another key under the same name")
        .arg(own.text(), failure.device, failure.function, codeName(failure.code));
}

// By value: fetching the key's certificate makes driver calls, which may add failures.
QString explain(const DriverFailure failure, const DiagnosisContext &context)
{
    const QString device = failure.device;
    switch (failure.code) {
    case SAR_PIN_LOCKED:
        return QStringLiteral("the %1 of key device \"%2\" is locked after too many wrong tries; "
                              "give it a new PIN with the admin PIN: zthost unblock")
            .arg(QLatin1String(pinName(failure)), device);
    case SAR_PIN_INCORRECT:
        if (failure.triesLeft == 0) {
            return QStringLiteral("wrong %1 for key device \"%2\": no tries left, it is now "
                                  "locked; give it a new PIN with the admin PIN: zthost unblock")
                .arg(QLatin1String(pinName(failure)), device);
        }
        if (failure.triesLeft > 0) {
            return QStringLiteral("wrong %1 for key device \"%2\": %3 %4 left before it locks")
                .arg(QLatin1String(pinName(failure)), device)
                .arg(failure.triesLeft)
                .arg(failure.triesLeft == 1 ? QStringLiteral("try") : QStringLiteral("tries"));
        }
        return QStringLiteral("wrong %1 for key device \"%2\"")
            .arg(QLatin1String(pinName(failure)), device);
    case SAR_USER_NOT_LOGGED_IN:
        return QStringLiteral("the user PIN of key device \"%1\" was not verified in this "
                              "session (%2 answered SAR_USER_NOT_LOGGED_IN): call WebVerifyPin "
                              "first, in the same process")
            .arg(device, failure.function);
    case SAR_DEVICE_REMOVED:
        return QStringLiteral("key device \"%1\" was removed (%2 answered SAR_DEVICE_REMOVED): "
                              "plug it in again and retry")
            .arg(device, failure.function);
    default:
        break;
    }
    if (failure.function == QLatin1String("SKF_ImportSessionKey")) {
        const QString recipient = wrongRecipient(failure, context);
        if (!recipient.isEmpty())
            return recipient;
    }
    const QString where = device.isEmpty() ? QStringLiteral("the smart-key driver")
                                           : QStringLiteral("key device \"%1\"").arg(device);
    return QStringLiteral("%1: %2").arg(where, skfFailureText(failure.function.toLatin1().constData(),
                                                               failure.code));
}

} // namespace

QString diagnoseFailure(const DriverAnswers &answers, const DiagnosisContext &context)
{
    if (!answers.loadError().isEmpty()) {
        return QStringLiteral("%1; name a working smart-key driver with --skf")
            .arg(answers.loadError());
    }
    if (!answers.failures().isEmpty())
        return explain(answers.failures().first(), context);
    if (answers.devicesListed() == 0) {
        return QStringLiteral("the smart-key driver %1 lists no key device: plug one in, or make "
                              "a software key with zthost keygen")
            .arg(answers.driverPath());
    }
    return QString();
}

} // namespace zthost::cli
