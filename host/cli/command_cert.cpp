#include "commands.h"

#include "command_line.h"
#include "file_io.h"
#include "session_steps.h"

namespace zthost::cli {

namespace {
const QString kOut = QStringLiteral("out");
} // namespace

ExitCode runCert(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("cert"), QStringLiteral("[--out FILE] [options]"),
                     QStringLiteral("Opens the first key (WebOpenKey) and writes its SM2 "
                                    "encryption certificate as WebGetCertData answers it:\none "
                                    "line of Base64. No PIN is needed."));
    line.addOption({kOut, QStringLiteral("Write the certificate to FILE (default: standard output)."),
                    QStringLiteral("FILE")});
    const CommandLine::Parse parsed = line.parse(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    if (!line.positionalArguments().isEmpty())
        return line.usageError(QStringLiteral("unexpected argument \"%1\"").arg(line.positionalArguments().first()));

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
    if (!writeResult(line.value(kOut), certificate.text().toLatin1() + '\n', &error))
        return failed(error);
    return ExitCode::Success;
}

} // namespace zthost::cli
