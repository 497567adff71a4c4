#include "commands.h"

#include "command_line.h"
#include "file_io.h"
#include "session_steps.h"

namespace zthost::cli {

namespace {
const QString kOut = QStringLiteral("out");
const QString kPem = QStringLiteral("pem");

// The PEM text of a DER certificate: its Base64 in lines of 64 between the two marker lines.
QByteArray pemOf(const QByteArray &der)
{
    const QByteArray base64 = der.toBase64();
    QByteArray pem = "-----BEGIN CERTIFICATE-----\n";
    for (int at = 0; at < base64.size(); at += 64)
        pem += base64.mid(at, 64) + '\n';
    return pem + "-----END CERTIFICATE-----\n";
}
} // namespace

ExitCode runCert(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("cert"), QStringLiteral("[--out FILE] [--pem] [options]"),
                     QStringLiteral("Opens the key (WebOpenKey) and writes its SM2 encryption "
                                    "certificate as WebGetCertData answers it:\none line of "
                                    "Base64, or PEM with --pem. No PIN is needed."));
    line.addOption({kOut,
                    QStringLiteral("Write the certificate to FILE (default, or -: standard "
                                   "output)."),
                    QStringLiteral("FILE")});
    line.addOption({kPem, QStringLiteral("PEM instead of one line of Base64.")});
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);

    std::unique_ptr<HostSession> session = startHost(line.hostOptions());
    if (!session || !openKey(*session))
        return ExitCode::Failure;
    const Answer certificate = session->call(QStringLiteral("WebGetCertData"), {QString()});
    if (!certificate.succeeded) {
        failed(certificate.failure);
        printDiagnosis(*session);
        return ExitCode::Failure;
    }
    QString error;
    const QByteArray base64 = certificate.text().toLatin1();
    const QByteArray text = line.isSet(kPem) ? pemOf(QByteArray::fromBase64(base64)) : base64 + '\n';
    if (!writeResult(line.value(kOut), text, &error))
        return failed(error);
    return ExitCode::Success;
}

} // namespace zthost::cli
