#include "commands.h"

#include "command_line.h"
#include "envelope_input.h"
#include "file_io.h"
#include "pin_source.h"
#include "session_steps.h"

#include <plugin_host/session_key_algorithm.h>

namespace zthost::cli {

namespace {
const QString kPin = QStringLiteral("pin");
const QString kIn = QStringLiteral("in");
const QString kOut = QStringLiteral("out");
} // namespace

ExitCode runDecrypt(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("decrypt"),
                     QStringLiteral("--pin PIN --in FILE [--out FILE] [options]"),
                     QStringLiteral("Opens a digital envelope on the key: WebOpenKey, "
                                    "WebVerifyPin, WebZtDecode. Writes the plaintext as it is."));
    line.addOption({kPin,
                    QStringLiteral("The user PIN (else $ZTHOST_PIN, else asked for on the "
                                   "terminal). A wrong one costs a try."),
                    QStringLiteral("PIN")});
    line.addOption({kIn,
                    QStringLiteral("The envelope: Base64 text, or raw DER (detected); - reads "
                                   "standard input."),
                    QStringLiteral("FILE")});
    line.addOption({kOut,
                    QStringLiteral("Write the plaintext to FILE, mode 0600, whole or not at all "
                                   "(default, or -: standard output)."),
                    QStringLiteral("FILE")});
    line.setNotes(QStringLiteral(
        "When a step fails, the library's message is followed by a line 'diagnosis: ...' saying "
        "which cause\nthe host saw in the driver's answers: a wrong PIN and its tries left, a "
        "locked PIN, an envelope\nmade for another certificate (naming both), a removed device, "
        "a driver that does not load.\nThe envelope carries no integrity check: a damaged one can "
        "decrypt to damaged data."));
    const CommandLine::Parse parsed = line.parse(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    if (!line.positionalArguments().isEmpty())
        return line.usageError(QStringLiteral("unexpected argument \"%1\"").arg(line.positionalArguments().first()));
    if (!line.isSet(kIn))
        return line.usageError(QStringLiteral("missing --in"));

    // The file first: a typo in its name must not cost a PIN try.
    QByteArray file;
    QString error;
    if (!readWholeFile(line.value(kIn), &file, &error))
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
    const QString envelope = envelopeAsBase64(file);
    const Answer decoded = session->call(QStringLiteral("WebZtDecode"),
                                         {envelope, QVariant::fromValue<qulonglong>(ZtSessionKey::kAlgorithmId)});
    if (!decoded.succeeded) {
        failed(decoded.failure);
        printDiagnosis(*session, QByteArray::fromBase64(envelope.toLatin1()));
        return ExitCode::Failure;
    }
    if (!writeResult(line.value(kOut), QByteArray::fromBase64(decoded.text().toLatin1()), &error))
        return failed(error);
    return ExitCode::Success;
}

} // namespace zthost::cli
