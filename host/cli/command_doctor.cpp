#include "commands.h"

#include "command_line.h"
#include "console.h"
#include "doctor_checks.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace zthost::cli {

namespace {
const QString kJson = QStringLiteral("json");

// Continuation lines start under the detail column.
constexpr int kNameWidth = 12;
constexpr int kOutcomeWidth = 8;

// A note such as a list of function names, cut after a comma so no line passes 100 columns.
QStringList wrapped(const QString &note, int indent)
{
    constexpr int kWidth = 100;
    QStringList lines;
    QString current;
    for (const QString &word : note.split(QLatin1Char(' '))) {
        if (!current.isEmpty() && indent + current.size() + 1 + word.size() > kWidth) {
            lines << current;
            current.clear();
        }
        current += (current.isEmpty() ? QString() : QStringLiteral(" ")) + word;
    }
    if (!current.isEmpty())
        lines << current;
    return lines;
}

void printText(const QList<DoctorCheck> &checks)
{
    printLine(QStringLiteral("zthost doctor: the plug-in, the smart-key driver, the key devices, "
                             "the encryption certificate, the log folders"));
    printLine(QString());
    const QString indent(2 + kNameWidth + 2 + kOutcomeWidth + 2, QLatin1Char(' '));
    printLine(QStringLiteral("  %1  %2  detail")
                  .arg(QStringLiteral("check"), -kNameWidth)
                  .arg(QStringLiteral("outcome"), -kOutcomeWidth));
    for (const DoctorCheck &check : checks) {
        printLine(QStringLiteral("  %1  %2  %3")
                      .arg(check.name, -kNameWidth)
                      .arg(outcomeText(check.outcome), -kOutcomeWidth)
                      .arg(check.detail));
        for (const QString &note : check.notes) {
            for (const QString &part : wrapped(note, indent.size()))
                printLine(indent + part);
        }
        if (!check.advice.isEmpty())
            printLine(indent + QStringLiteral("what to do: ") + check.advice);
    }
    printLine(QString());
    QStringList failed;
    int warnings = 0;
    for (const DoctorCheck &check : checks) {
        if (check.outcome == CheckOutcome::Failed)
            failed << check.name;
        else if (check.outcome == CheckOutcome::Warning)
            ++warnings;
    }
    const QString warned = warnings == 0 ? QString()
                                         : QStringLiteral(" (%1 with a warning)").arg(warnings);
    if (failed.isEmpty())
        printLine(QStringLiteral("all %1 checks passed%2").arg(checks.size()).arg(warned));
    else
        printLine(QStringLiteral("%1 of %2 checks FAILED: %3")
                      .arg(failed.size())
                      .arg(checks.size())
                      .arg(failed.join(QLatin1String(", "))));
}

void printJson(const QList<DoctorCheck> &checks, bool passed)
{
    QJsonArray list;
    for (const DoctorCheck &check : checks) {
        QJsonObject entry{{QStringLiteral("name"), check.name},
                          {QStringLiteral("outcome"), outcomeText(check.outcome).toLower()},
                          {QStringLiteral("detail"), check.detail},
                          {QStringLiteral("notes"), QJsonArray::fromStringList(check.notes)},
                          {QStringLiteral("advice"), check.advice},
                          {QStringLiteral("facts"), check.facts}};
        list.append(entry);
    }
    const QJsonObject document{{QStringLiteral("passed"), passed},
                               {QStringLiteral("checks"), list}};
    writeStandardOutput(QJsonDocument(document).toJson(QJsonDocument::Indented));
}
} // namespace

ExitCode runDoctor(const QStringList &arguments)
{
    CommandLine line(QStringLiteral("doctor"), QStringLiteral("[--json] [options]"),
                     QStringLiteral("Checks, in order, what the other commands need, and says what "
                                    "to do about each failure:\nthe plug-in loads (and its "
                                    "version), the smart-key driver loads and which of the "
                                    "standard's\nfunctions it lacks, the key devices and their "
                                    "containers, the first device's encryption\ncertificate "
                                    "(validity, key type, key usage), and the folders the plug-in "
                                    "and the host\nwrite their logs to. No PIN is needed and no "
                                    "PIN try is spent."));
    line.addOption({kJson, QStringLiteral("Write the checks as one JSON document instead of a table.")});
    line.setNotes(QStringLiteral("Exit status: 0 when no check failed (a warning does not fail), "
                                 "1 otherwise."));
    const CommandLine::Parse parsed = line.parseWithoutArguments(arguments);
    if (parsed != CommandLine::Parse::Run)
        return CommandLine::exitCodeOf(parsed);

    const std::optional<SessionOptions> options = line.hostOptions();
    if (!options)
        return ExitCode::Failure;
    const QList<DoctorCheck> checks = runDoctorChecks(*options, QDateTime::currentDateTimeUtc());
    bool passed = true;
    for (const DoctorCheck &check : checks)
        passed = passed && check.outcome != CheckOutcome::Failed;
    if (line.isSet(kJson))
        printJson(checks, passed);
    else
        printText(checks);
    return passed ? ExitCode::Success : ExitCode::Failure;
}

} // namespace zthost::cli
