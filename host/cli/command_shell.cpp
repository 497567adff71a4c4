#include "commands.h"

#include "call_plan.h"
#include "command_line.h"
#include "console.h"
#include "session_steps.h"

#include "core/pin_wipe.h"
#include "session/scriptable_method.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace zthost::cli {

namespace {
// A line of standard input without its line end; false at the end of input.
bool readLine(std::string *line)
{
    line->clear();
    int c = std::getchar();
    if (c == EOF)
        return false;
    for (; c != EOF && c != '\n'; c = std::getchar())
        line->push_back(char(c));
    if (!line->empty() && line->back() == '\r')
        line->pop_back();
    return true;
}

// Words split at blanks; "..." or '...' keeps blanks in a word. False for an unclosed quote.
bool splitWords(const QString &line, QStringList *words)
{
    words->clear();
    QString word;
    bool inWord = false;
    QChar quote;
    for (const QChar c : line) {
        if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
            else
                word += c;
        } else if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
            quote = c;
            inWord = true;
        } else if (c.isSpace()) {
            if (inWord)
                words->append(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord)
        words->append(word);
    return quote.isNull();
}

void printShellHelp(const QObject *scriptable)
{
    printLine(QStringLiteral(
        "One call a line: METHOD [ARG...], as 'zthost call' takes them (\"...\" keeps blanks in "
        "an argument,\n@FILE reads one from a file). WebVerifyPin without its PIN asks for it "
        "without echo. Also:\n  help   this text\n  quit   leave (so does the end of input)\n"
        "Methods:\n  %1")
                  .arg(invokableSignatures(scriptable).join(QLatin1String("\n  "))));
}
} // namespace

ExitCode runShell(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("shell"), QStringLiteral("[options]"),
                     QStringLiteral(
                         "Calls methods of the scriptable object one line at a time in one "
                         "session, as 'zthost call'\ndoes with --: a prompt on the terminal, one "
                         "call a line, 'help' for the methods, 'quit' to\nleave. WebOpenKey is "
                         "called before the first call unless that call is WebOpenKey. Reads\n"
                         "standard input when it is no terminal too (a script of calls, no "
                         "prompt)."));
    line.setNotes(QStringLiteral(
        "WebVerifyPin without its PIN takes $ZTHOST_PIN, else asks for it on the terminal "
        "without echo; a PIN\ntyped on the call's line is shown as the terminal shows every "
        "line. A failure answer is printed\nwith its explanation and the shell goes on; the exit "
        "status is 1 when any call failed or was\nrefused, else 0."));
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);

    std::unique_ptr<HostSession> session = startHost(line.hostOptions());
    if (!session)
        return ExitCode::Failure;
    const bool terminal = isatty(STDIN_FILENO);
    bool opened = false;
    bool allHeld = true;
    std::string raw;
    for (;;) {
        if (terminal) {
            std::fputs("zthost> ", stderr);
            std::fflush(stderr);
        }
        if (!readLine(&raw))
            break;
        QString text = QString::fromUtf8(raw.data(), int(raw.size()));
        // The line may carry a PIN: the raw bytes go at once, the words after the call.
        wipePin(raw);
        QStringList words;
        const bool split = splitWords(text, &words);
        wipePin(text);
        if (!split) {
            printError(QStringLiteral("an unclosed quote; the line is not called"));
            allHeld = false;
            continue;
        }
        if (words.isEmpty())
            continue;
        const QString first = words.first();
        if (first == QLatin1String("quit") || first == QLatin1String("exit"))
            break;
        if (first == QLatin1String("help")) {
            printShellHelp(session->scriptable());
            continue;
        }
        PlannedCall call;
        QString error;
        PlanFailure failure = PlanFailure::None;
        const bool planned = planCall(session->scriptable(), words, &call, &error, &failure);
        for (QString &word : words)
            wipePin(word);
        if (!planned) {
            printError(error);
            allHeld = false;
            continue;
        }
        if (!opened && call.method != QLatin1String("WebOpenKey")) {
            if (!openKey(*session))
                allHeld = false;
        }
        opened = true;
        if (!runPlannedCall(*session, call))
            allHeld = false;
    }
    if (terminal)
        std::fputs("\n", stderr);
    return allHeld ? ExitCode::Success : ExitCode::Failure;
}

} // namespace zthost::cli
