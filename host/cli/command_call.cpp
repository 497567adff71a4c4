#include "commands.h"

#include "call_plan.h"
#include "command_line.h"
#include "console.h"
#include "device_choice.h"
#include "session_steps.h"

#include <vector>

namespace zthost::cli {

namespace {
const QString kSeparator = QStringLiteral("--");

// METHOD [ARG...] [-- METHOD [ARG...]]... as one list of words per call.
QList<QStringList> splitCalls(const QStringList &words)
{
    QList<QStringList> calls{QStringList()};
    for (const QString &word : words) {
        if (word == kSeparator)
            calls.append(QStringList());
        else
            calls.last().append(word);
    }
    return calls;
}
} // namespace

ExitCode runCall(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("call"),
                     QStringLiteral("[options] METHOD [ARG...] [-- METHOD [ARG...]]..."),
                     QStringLiteral(
                         "Calls invokable methods of the scriptable object by name, one after "
                         "the other in one session,\nand prints each answer on its own line. "
                         "WebOpenKey is called first unless the first METHOD is\nWebOpenKey. "
                         "Each ARG is converted to the method's parameter type: QString as it "
                         "is, quint64\nin decimal or 0x hexadecimal, bool as true/false/1/0. "
                         "@FILE stands for the file's text (its\ntrailing line ends dropped), @- "
                         "for standard input, @@TEXT for @TEXT. WebVerifyPin without\nits PIN "
                         "takes $ZTHOST_PIN, else asks for it on the terminal without echo."));
    line.setNotes(QStringLiteral(
        "Options come before the first METHOD: after it every word is a method, an argument or "
        "the -- between\ntwo calls, dashes and all. Every call is checked before the first is "
        "made. The calls stop at the\nfirst failure answer (false, or the text \"false\"), "
        "which is printed with its explanation, and\nthe exit status is then 1."));
    line.setOptionsBeforeArgumentsOnly();
    const CommandLine::Parse parsed = line.parse(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);
    const QStringList positional = line.positionalArguments();
    if (positional.isEmpty())
        return line.usageError(QStringLiteral("missing METHOD"));
    const QList<QStringList> groups = splitCalls(positional);
    for (int i = 0; i < groups.size(); ++i) {
        if (groups[i].isEmpty())
            return line.usageError(QStringLiteral("no METHOD in call %1 (two -- in a row, or one "
                                                  "at an end)")
                                       .arg(i + 1));
    }

    std::unique_ptr<HostSession> session = startHost(line.hostOptions());
    if (!session)
        return ExitCode::Failure;
    std::vector<PlannedCall> calls(size_t(groups.size()));
    for (int i = 0; i < groups.size(); ++i) {
        QString error;
        PlanFailure failure = PlanFailure::None;
        if (!planCall(session->scriptable(), groups[i], &calls[size_t(i)], &error, &failure))
            return failure == PlanFailure::Usage ? line.usageError(error) : failed(error);
    }

    // A first WebOpenKey is the user's own call: the device choice is checked before it all the
    // same, and runPlannedCall names the device it opened.
    const bool opensKey = calls.front().method == QLatin1String("WebOpenKey");
    if (opensKey ? !checkDeviceChoice(*session) : !openKey(*session))
        return ExitCode::Failure;
    for (PlannedCall &call : calls) {
        if (!runPlannedCall(*session, call))
            return ExitCode::Failure;
    }
    return ExitCode::Success;
}

} // namespace zthost::cli
