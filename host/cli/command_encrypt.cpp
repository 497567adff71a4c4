#include "commands.h"

#include "certificate_facts.h"
#include "certificate_input.h"
#include "command_line.h"
#include "console.h"
#include "file_io.h"
#include "progress.h"
#include "session_steps.h"

#include "sealer/envelope_sealer.h"

#include <QFileInfo>

namespace zthost::cli {

namespace {
const QString kCert = QStringLiteral("cert");
const QString kIn = QStringLiteral("in");
const QString kOut = QStringLiteral("out");
} // namespace

ExitCode runEncrypt(const QStringList &arguments)
{
    CommandLine line(
        QStringLiteral("encrypt"), QStringLiteral("--cert FILE --in FILE [--out FILE] [options]"),
        QStringLiteral("Makes a digital envelope of a file for a recipient certificate and writes "
                       "it as one line of Base64,\nready for 'zthost decrypt' or WebZtDecode. No "
                       "key device is needed."));
    line.addOption({kCert,
                    QStringLiteral("The recipient's certificate: DER, PEM, or Base64 text as "
                                   "'zthost cert' writes it (detected); - reads standard input."),
                    QStringLiteral("FILE")});
    line.addOption({kIn,
                    QStringLiteral("The content to seal (any bytes, at least one); - reads "
                                   "standard input."),
                    QStringLiteral("FILE")});
    line.addOption({kOut,
                    QStringLiteral("Write the envelope to FILE, mode 0600 (default, or -: "
                                   "standard output)."),
                    QStringLiteral("FILE")});
    line.setNotes(QStringLiteral(
        "How the envelope is made: a fresh random 16-byte SM4 key is SM2-encrypted with OpenSSL to "
        "the\ncertificate's public key, the content is SM4-ECB encrypted with PKCS#7 padding, and "
        "the host's own\nsealer writes the envelope's DER with OpenSSL, every INTEGER minimal. "
        "The SM2 encryption is made\nagain, with fresh randomness, until neither coordinate of C1 "
        "starts with a zero byte: each is then\nexactly 32 bytes, and the plug-in reads the key "
        "back whole (a shorter coordinate would be read\nback short).\n\n"
        "The certificate's key must be SM2: any other (RSA, an EC key on another curve) is refused "
        "with\none sentence naming its type. A certificate whose key usage does not include "
        "keyEncipherment\ngets a warning on standard error, and the envelope is made all the same."
        "\n\nNo plug-in is loaded and no key device is opened: the options every command shares have "
        "no\neffect here."));
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    if (!line.isSet(kCert))
        return line.usageError(QStringLiteral("missing --cert"));
    if (!line.isSet(kIn))
        return line.usageError(QStringLiteral("missing --in"));
    if (line.value(kCert) == kStandardStream && line.value(kIn) == kStandardStream)
        return line.usageError(QStringLiteral("--cert and --in cannot both read standard input"));

    QByteArray certificateFile;
    QByteArray content;
    QString error;
    Progress progress;
    if (!readWholeFile(line.value(kCert), &certificateFile, &error))
        return failed(error);
    progress.begin(QStringLiteral("reading %1").arg(line.value(kIn)),
                   QFileInfo(line.value(kIn)).size());
    const bool read = readWholeFile(line.value(kIn), &content, &error);
    progress.end();
    if (!read)
        return failed(error);
    QByteArray certificate;
    CertificateFormat format = CertificateFormat::Der;
    if (!certificateDer(certificateFile, &certificate, &format, &error))
        return failed(QStringLiteral("%1: %2").arg(line.value(kCert), error));
    // The key device refuses to decrypt to nothing, so an empty envelope could never be opened.
    if (content.isEmpty())
        return failed(QStringLiteral("%1 is empty: an envelope needs at least one byte of content")
                          .arg(line.value(kIn)));

    // Only an SM2 key is sealed to (the sealer refuses any other with its own sentence); one
    // whose certificate does not allow key encipherment still is, with a word of warning.
    CertificateFacts facts;
    if (readCertificateFacts(certificate, &facts, &error) && facts.sm2) {
        const QString problem =
            keyEnciphermentProblem(facts, QStringLiteral("the recipient certificate's"));
        if (!problem.isEmpty()) {
            printError(QStringLiteral("warning: %1: sealing to it all the same, but its holder's "
                                      "software may refuse to open the envelope")
                           .arg(problem));
        }
    }
    error.clear();
    progress.begin(QStringLiteral("sealing %1").arg(line.value(kIn)), content.size());
    const QByteArray envelope = sealEnvelope(certificate, content, &error);
    progress.end();
    if (envelope.isEmpty())
        return failed(error);
    content = QByteArray();
    progress.begin(QStringLiteral("writing the envelope"), envelope.size() / 3 * 4);
    const bool written = writeResult(line.value(kOut), envelope.toBase64() + '\n', &error);
    progress.end();
    if (!written)
        return failed(error);
    return ExitCode::Success;
}

} // namespace zthost::cli
