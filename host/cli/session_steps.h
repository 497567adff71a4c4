#pragma once

#include "command_line.h"
#include "session/host_session.h"
#include "session/session_options.h"

#include <QString>

#include <memory>
#include <optional>

namespace zthost::cli {

// The first steps every command that talks to the plug-in takes, each printing its own failure
// on standard error.

// Starts the host session; null after printing why, or at once for no options (their failure
// was printed already: CommandLine::hostOptions).
std::unique_ptr<HostSession> startHost(const std::optional<SessionOptions> &options);

// WebOpenKey, then names the device used on standard error (device_choice.h); false after
// printing why: the chosen device is not listed, or "WebOpenKey answered false: <message>".
bool openKey(HostSession &session);

// WebVerifyPin with `pin`, which is wiped after (core/pin_wipe.h); false after printing
// "WebVerifyPin answered false: <message>".
bool verifyPin(HostSession &session, QString &pin);

// After a call of the plug-in failed and its message was printed: one more line saying which
// cause the host saw (failure_diagnosis.h), when it saw one. `envelopeDer` is the envelope the
// failed call was opening, if any.
void printDiagnosis(HostSession &session, const QByteArray &envelopeDer = QByteArray());

// Prints `message` as a failure and answers ExitCode::Failure.
ExitCode failed(const QString &message);

} // namespace zthost::cli
