#include "commands.h"

#include "command_line.h"
#include "console.h"
#include "device_choice.h"
#include "session/scriptable_method.h"
#include "session_steps.h"

namespace zthost::cli {

ExitCode runCall(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("call"), QStringLiteral("METHOD [ARG...] [options]"),
                     QStringLiteral("Calls an invokable method of the scriptable object by name "
                                    "and prints its answer, after WebOpenKey\n(unless METHOD is "
                                    "WebOpenKey). Each ARG is converted to the method's parameter "
                                    "type:\nQString as it is, quint64 in decimal or 0x hexadecimal, "
                                    "bool as true/false/1/0.\nPut -- before arguments that start "
                                    "with a dash."));
    line.setNotes(QStringLiteral("A failure answer (false, or the text \"false\") is printed "
                                 "too, and the exit status is 1."));
    const CommandLine::Parse parsed = line.parse(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    const QStringList positional = line.positionalArguments();
    if (positional.isEmpty())
        return line.usageError(QStringLiteral("missing METHOD"));
    const QString method = positional.first();

    std::unique_ptr<HostSession> session = startHost(line.hostOptions());
    if (!session)
        return ExitCode::Failure;
    const QMetaMethod target = findInvokable(session->scriptable(), method);
    if (!target.isValid()) {
        return line.usageError(QStringLiteral("no method \"%1\"; the scriptable object has:\n  %2")
                                   .arg(method, invokableSignatures(session->scriptable())
                                                    .join(QLatin1String("\n  "))));
    }
    QVariantList values;
    QString error;
    if (!convertArguments(target, positional.mid(1), &values, &error))
        return line.usageError(error);

    const bool opensKey = method == QLatin1String("WebOpenKey");
    if (opensKey ? !checkDeviceChoice(*session) : !openKey(*session))
        return ExitCode::Failure;
    const Answer answer = session->call(method, values);
    if (opensKey && answer.succeeded)
        announceDeviceInUse(*session);
    if (answer.value.isValid())
        printLine(answer.text());
    if (!answer.succeeded) {
        failed(answer.failure);
        // An envelope among the arguments (WebZtDecode's) lets the diagnosis name its recipient.
        QByteArray envelope;
        if (method == QLatin1String("WebZtDecode") && !values.isEmpty())
            envelope = QByteArray::fromBase64(values.first().toString().toLatin1());
        printDiagnosis(*session, envelope);
        return ExitCode::Failure;
    }
    return ExitCode::Success;
}

} // namespace zthost::cli
