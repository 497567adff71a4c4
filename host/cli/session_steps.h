#pragma once

#include "exit_code.h"
#include "host_options.h"
#include "host_session.h"

#include <QString>

#include <memory>

namespace zthost::cli {

// The first steps every command that talks to the plug-in takes, each printing its own failure
// on standard error.

// Applies --root and -v, then starts the host session; null after printing why.
std::unique_ptr<HostSession> startHost(const HostOptions &options);

// WebOpenKey; false after printing "WebOpenKey answered false: <message>".
bool openKey(HostSession &session);

// Prints `message` as a failure and answers ExitCode::Failure.
ExitCode failed(const QString &message);

} // namespace zthost::cli
