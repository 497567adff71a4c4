#pragma once

#include "command_line.h"
#include "result_output.h"
#include "session/session_options.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace zthost::cli {

// `zthost decrypt` with several envelopes.
struct BatchRequest
{
    QStringList inputs;     // --in, in the order given
    QString inputFolder;    // --in-dir, empty when not given
    QString outputFolder;   // --out-dir
    ResultOutput::Existing existing = ResultOutput::Existing::Keep;
    std::optional<QString> pinOption;
    SessionOptions options;
};

// The plaintext's name in the output folder for an envelope file: without a final .b64, .der or
// .env, else with .out added ("bid-17.pdf.b64" gives "bid-17.pdf", "bid-17" gives "bid-17.out").
QString plaintextName(const QString &envelopeFileName);

// Opens every envelope with one PIN entry and one session, going on after a failure, and prints
// the table of what became of each. Success only when every envelope was opened.
ExitCode decryptBatch(const BatchRequest &request, const CommandLine &line);

} // namespace zthost::cli
