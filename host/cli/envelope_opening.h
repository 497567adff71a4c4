#pragma once

#include "envelope_input.h"
#include "progress.h"
#include "result_output.h"
#include "session/host_session.h"

#include <QString>

namespace zthost::cli {

// One envelope opened in a session whose key is open and PIN verified: its text read, handed to
// WebZtDecode, and the answer decoded into `outPath` (standard output when empty). Each
// full-size copy goes as soon as the next step holds what it needs: the text once the plug-in
// has answered, the answer piece by piece as it is written. False with `error` set: the
// explained failure of WebZtDecode, or why the file could not be read or written.
bool openEnvelope(HostSession &session, const EnvelopeFile &envelope, const QString &outPath,
                  ResultOutput::Existing existing, Progress &progress, QString *error);

} // namespace zthost::cli
