#include "commands.h"

#include "command_line.h"
#include "decrypt_batch.h"
#include "envelope_opening.h"
#include "pin_source.h"
#include "progress.h"
#include "session_steps.h"

namespace zthost::cli {

namespace {
const QString kPin = QStringLiteral("pin");
const QString kIn = QStringLiteral("in");
const QString kInDir = QStringLiteral("in-dir");
const QString kOut = QStringLiteral("out");
const QString kOutDir = QStringLiteral("out-dir");
const QString kForce = QStringLiteral("force");

// One envelope to standard output or --out, as before there were batches: the file is looked at
// before the PIN, so a typo in its name or a file too large costs no try.
ExitCode decryptOne(const CommandLine &line)
{
    const QString in = line.value(kIn);
    EnvelopeFile envelope;
    QString error;
    if (!inspectEnvelopeFile(in, &envelope, &error))
        return failed(error);
    Pin pin = readPin(line.optionalValue(kPin), QStringLiteral("User PIN: "));
    if (pin.origin == PinOrigin::Missing)
        return line.usageError(QStringLiteral("no user PIN: give --pin, set ZTHOST_PIN, or run "
                                              "on a terminal to be asked"));

    std::unique_ptr<HostSession> session = startHost(line.hostOptions());
    if (!session || !openKey(*session))
        return ExitCode::Failure;
    if (!verifyPin(*session, pin.text))
        return ExitCode::Failure;
    Progress progress;
    // One named --out is replaced, as it always was; only a batch keeps what exists.
    const QString out = line.value(kOut) == QLatin1String("-") ? QString() : line.value(kOut);
    if (!openEnvelope(*session, envelope, out, ResultOutput::Existing::Replace, progress, &error)) {
        failed(error);
        // Read again only now, so that the envelope is never held twice on the way in.
        printDiagnosis(*session, envelopeDer(envelope));
        return ExitCode::Failure;
    }
    return ExitCode::Success;
}
} // namespace

ExitCode runDecrypt(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("decrypt"),
                     QStringLiteral("--pin PIN --in FILE [--out FILE] [options]\n"
                                    "       zthost decrypt --pin PIN (--in-dir DIR | --in FILE "
                                    "--in FILE...) --out-dir DIR [--force] [options]"),
                     QStringLiteral("Opens digital envelopes on the key: WebOpenKey, "
                                    "WebVerifyPin, then WebZtDecode for each envelope.\nWrites "
                                    "each plaintext as it is. Several envelopes (--in-dir, or "
                                    "--in more than once) are\nopened with one PIN entry, one "
                                    "after the other; a failure does not stop the others."));
    line.addOption({kPin,
                    QStringLiteral("The user PIN (else $ZTHOST_PIN, else asked for on the "
                                   "terminal). A wrong one costs a try."),
                    QStringLiteral("PIN")});
    line.addOption({kIn,
                    QStringLiteral("An envelope: Base64 text, or raw DER (detected); - reads "
                                   "standard input. May be given more than once."),
                    QStringLiteral("FILE")});
    line.addOption({kInDir,
                    QStringLiteral("Every file in DIR (not its folders or hidden files), in name "
                                   "order."),
                    QStringLiteral("DIR")});
    line.addOption({kOut,
                    QStringLiteral("Write the plaintext to FILE, mode 0600, whole or not at all "
                                   "(default, or -: standard output)."),
                    QStringLiteral("FILE")});
    line.addOption({kOutDir,
                    QStringLiteral("Write each plaintext into DIR (made if missing), named after "
                                   "its envelope without a final .b64, .der or .env (else with "
                                   ".out added)."),
                    QStringLiteral("DIR")});
    line.addOption({kForce, QStringLiteral("Replace plaintexts that exist in --out-dir.")});
    line.setNotes(QStringLiteral(
        "Several envelopes: the table on standard output has one row per envelope (file, size, "
        "outcome,\ntime); on a terminal a line on standard error tells each as it ends. The exit "
        "status is 1 when\nany envelope was not opened. A file whose Base64 text is over the "
        "plug-in's limit is refused\nbefore the PIN is tried (the README gives the figure).\n\n"
        "When a step fails, the library's message is followed by a line 'diagnosis: ...' saying "
        "which cause\nthe host saw in the driver's answers: a wrong PIN and its tries left, a "
        "locked PIN, an envelope\nmade for another certificate (naming both), a removed device, "
        "a driver that does not load.\nThe envelope carries no integrity check: a damaged one can "
        "decrypt to damaged data."));
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    const QStringList inputs = line.values(kIn);
    if (inputs.isEmpty() && !line.isSet(kInDir))
        return line.usageError(QStringLiteral("missing --in"));
    const bool batch = line.isSet(kInDir) || inputs.size() > 1 || line.isSet(kOutDir);
    if (!batch)
        return decryptOne(line);
    if (line.isSet(kOut))
        return line.usageError(QStringLiteral("--out names one plaintext; with several envelopes "
                                              "give --out-dir"));
    if (!line.isSet(kOutDir))
        return line.usageError(QStringLiteral("missing --out-dir: several envelopes need a folder "
                                              "for their plaintexts"));
    BatchRequest request;
    request.inputs = inputs;
    request.inputFolder = line.value(kInDir);
    request.outputFolder = line.value(kOutDir);
    request.existing = line.isSet(kForce) ? ResultOutput::Existing::Replace
                                          : ResultOutput::Existing::Keep;
    request.pinOption = line.optionalValue(kPin);
    const std::optional<SessionOptions> options = line.hostOptions();
    if (!options)
        return ExitCode::Failure;
    request.options = *options;
    return decryptBatch(request, line);
}

} // namespace zthost::cli
