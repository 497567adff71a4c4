#include "decrypt_batch.h"

#include "console.h"
#include "envelope_input.h"
#include "envelope_opening.h"
#include "pin_source.h"
#include "progress.h"
#include "session_steps.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSet>

#include <vector>

namespace zthost::cli {

namespace {

enum class Outcome { Pending, Opened, Failed, OutputExists };

struct Row
{
    QString file;
    EnvelopeFile envelope;
    QString outPath;
    Outcome outcome = Outcome::Pending;
    double ms = -1; // -1: not attempted
};

QString outcomeText(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Opened:
        return QStringLiteral("opened");
    case Outcome::Failed:
        return QStringLiteral("failed");
    case Outcome::OutputExists:
        return QStringLiteral("output exists");
    case Outcome::Pending:
        break;
    }
    return QStringLiteral("not opened");
}

QString timeText(double ms)
{
    if (ms < 0)
        return QStringLiteral("-");
    if (ms < 1000)
        return QStringLiteral("%1 ms").arg(ms, 0, 'f', 1);
    return QStringLiteral("%1 s").arg(ms / 1000, 0, 'f', 2);
}

QString sizeOf(const Row &row)
{
    return row.envelope.fileSize > 0 || QFileInfo::exists(row.file)
               ? byteSizeText(row.envelope.fileSize)
               : QStringLiteral("-");
}

// file  size  outcome  time, each column as wide as its widest cell.
void printTable(const std::vector<Row> &rows)
{
    QList<QStringList> cells{{QStringLiteral("file"), QStringLiteral("size"),
                              QStringLiteral("outcome"), QStringLiteral("time")}};
    for (const Row &row : rows)
        cells.append({row.file, sizeOf(row), outcomeText(row.outcome), timeText(row.ms)});
    QList<int> widths{0, 0, 0, 0};
    for (const QStringList &line : cells) {
        for (int i = 0; i < line.size(); ++i)
            widths[i] = qMax(widths[i], line[i].size());
    }
    for (const QStringList &line : cells) {
        QString text;
        for (int i = 0; i < line.size(); ++i) {
            // The size and time right-aligned, as numbers are.
            const bool number = i == 1 || i == 3;
            text += number ? line[i].rightJustified(widths[i]) : line[i].leftJustified(widths[i]);
            if (i + 1 < line.size())
                text += QStringLiteral("  ");
        }
        while (text.endsWith(QLatin1Char(' ')))
            text.chop(1);
        printLine(text);
    }
    int opened = 0;
    for (const Row &row : rows)
        opened += row.outcome == Outcome::Opened ? 1 : 0;
    printLine(QStringLiteral("%1 of %2 envelopes opened").arg(opened).arg(rows.size()));
}

// The files to open: each --in, then the folder's regular files by name. False after printing
// why the folder cannot be listed.
bool gatherFiles(const BatchRequest &request, QStringList *files)
{
    *files = request.inputs;
    if (request.inputFolder.isEmpty())
        return true;
    const QDir folder(request.inputFolder);
    if (!QFileInfo(request.inputFolder).isDir()) {
        printError(QStringLiteral("cannot read folder %1: %2")
                       .arg(request.inputFolder,
                            QFileInfo::exists(request.inputFolder) ? QStringLiteral("not a folder")
                                                                   : QStringLiteral("no such folder")));
        return false;
    }
    for (const QString &name : folder.entryList(QDir::Files, QDir::Name))
        files->append(folder.filePath(name));
    return true;
}

bool makeOutputFolder(const QString &path)
{
    if (QFileInfo(path).isDir())
        return true;
    if (!QDir().mkpath(path)) {
        printError(QStringLiteral("cannot make folder %1").arg(path));
        return false;
    }
    // Plaintexts are private: a folder made for them is the owner's alone.
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return true;
}

} // namespace

QString plaintextName(const QString &envelopeFileName)
{
    for (const char *suffix : {".b64", ".der", ".env"}) {
        if (envelopeFileName.endsWith(QLatin1String(suffix), Qt::CaseInsensitive)
            && envelopeFileName.size() > int(qstrlen(suffix)))
            return envelopeFileName.left(envelopeFileName.size() - int(qstrlen(suffix)));
    }
    return envelopeFileName + QStringLiteral(".out");
}

ExitCode decryptBatch(const BatchRequest &request, const CommandLine &line)
{
    QStringList files;
    if (!gatherFiles(request, &files))
        return ExitCode::Failure;
    if (files.isEmpty()) {
        printError(QStringLiteral("no envelopes in %1").arg(request.inputFolder));
        return ExitCode::Failure;
    }
    if (!makeOutputFolder(request.outputFolder))
        return ExitCode::Failure;

    // Everything that can be judged without the key first: a file that cannot be opened
    // costs no PIN try, and when none can, no PIN is asked for.
    std::vector<Row> rows;
    QSet<QString> taken;
    int pending = 0;
    for (const QString &file : files) {
        Row row;
        row.file = file;
        QString error;
        const QString name = plaintextName(QFileInfo(file).fileName());
        row.outPath = QDir(request.outputFolder).filePath(name);
        if (!inspectEnvelopeFile(file, &row.envelope, &error)) {
            printError(error);
            row.outcome = Outcome::Failed;
        } else if (taken.contains(name)) {
            printError(QStringLiteral("%1: its plaintext %2 is written by another envelope of "
                                      "this run")
                           .arg(file, row.outPath));
            row.outcome = Outcome::Failed;
        } else if (request.existing == ResultOutput::Existing::Keep && pathExists(row.outPath)) {
            printError(existingOutputMessage(row.outPath));
            row.outcome = Outcome::OutputExists;
        } else {
            ++pending;
        }
        taken.insert(name);
        rows.push_back(row);
    }

    if (pending > 0) {
        Pin pin = readPin(request.pinOption, QStringLiteral("User PIN: "));
        if (pin.origin == PinOrigin::Missing)
            return line.usageError(QStringLiteral("no user PIN: give --pin, set ZTHOST_PIN, or "
                                                  "run on a terminal to be asked"));
        std::unique_ptr<HostSession> session = startHost(request.options);
        if (!session || !openKey(*session) || !verifyPin(*session, pin.text))
            return ExitCode::Failure;

        Progress progress;
        int index = 0;
        for (Row &row : rows) {
            ++index;
            if (row.outcome != Outcome::Pending)
                continue;
            QElapsedTimer timer;
            timer.start();
            QString error;
            const bool opened = openEnvelope(*session, row.envelope, row.outPath,
                                             request.existing, progress, &error);
            row.ms = double(timer.nsecsElapsed()) / 1e6;
            row.outcome = opened ? Outcome::Opened : Outcome::Failed;
            if (!opened) {
                printError(QStringLiteral("%1: %2").arg(row.file, error));
                // The envelope is read again only now, as one envelope's decrypt does.
                printDiagnosis(*session, envelopeDer(row.envelope));
            }
            progress.note(QStringLiteral("[%1/%2] %3  %4  %5  %6")
                              .arg(index)
                              .arg(rows.size())
                              .arg(row.file, sizeOf(row), outcomeText(row.outcome),
                                   timeText(row.ms)));
        }
    }
    printTable(rows);
    for (const Row &row : rows) {
        if (row.outcome != Outcome::Opened)
            return ExitCode::Failure;
    }
    return ExitCode::Success;
}

} // namespace zthost::cli
