#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

namespace zthost {
class DriverAnswers;
}

namespace zthost::cli {

// What the command knows besides the driver's answers when a call of the plug-in failed.
struct DiagnosisContext
{
    // The envelope (DER) the failed call was opening; empty when it opened none.
    QByteArray envelopeDer;
    // The key's encryption certificate (DER), asked for only when an envelope would not open on
    // the key; empty when it cannot be had.
    std::function<QByteArray()> keyCertificate;
};

// One line saying which cause the host saw behind a failure of the plug-in, from what the
// smart-key driver answered during the failed call (host/key/driver_answers.h), and what to do
// about it: a locked PIN, a wrong PIN with the tries left, a PIN not verified in this session,
// an envelope made for another certificate, a removed device, a driver that is missing or does
// not load, no device at all, or any other driver failure by function and code.
//
// Empty when the driver answered nothing that explains it: the plug-in's own message is then
// all there is to say. Never contains a PIN: the driver's answers hold none.
QString diagnoseFailure(const DriverAnswers &answers, const DiagnosisContext &context);

} // namespace zthost::cli
