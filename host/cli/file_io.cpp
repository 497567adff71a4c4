#include "file_io.h"

#include "console.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cstdio>

namespace zthost::cli {

namespace {
bool readStandardInput(QByteArray *bytes, QString *error)
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read standard input: %1").arg(input.errorString());
        return false;
    }
    *bytes = input.readAll();
    if (input.error() != QFileDevice::NoError) {
        *error = QStringLiteral("cannot read standard input: %1").arg(input.errorString());
        return false;
    }
    return true;
}
} // namespace

bool readWholeFile(const QString &path, QByteArray *bytes, QString *error)
{
    if (path == kStandardStream)
        return readStandardInput(bytes, error);
    QFile file(path);
    // QFile happily opens a folder and reads nothing from it; say what it is instead.
    if (QFileInfo(path).isDir()) {
        *error = QStringLiteral("cannot read %1: it is a folder").arg(path);
        return false;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    *bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

bool writeResult(const QString &path, const QByteArray &bytes, QString *error)
{
    if (path.isEmpty() || path == kStandardStream) {
        if (writeStandardOutput(bytes))
            return true;
        *error = QStringLiteral("cannot write %1 bytes to standard output").arg(bytes.size());
        return false;
    }
    if (QFileInfo(path).isDir()) {
        *error = QStringLiteral("cannot write %1: it is a folder").arg(path);
        return false;
    }
    // QSaveFile writes a temporary file beside `path` (QTemporaryFile: 0600 from the start),
    // renames it over `path` on commit() and removes it when dropped uncommitted. Without
    // setPermissions it would take over an existing file's mode on commit.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    if (!file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(bytes) != bytes.size() || !file.commit()) {
        *error = QStringLiteral("cannot write %1 bytes to %2: %3")
                     .arg(bytes.size())
                     .arg(path, file.errorString());
        file.cancelWriting();
        return false;
    }
    return true;
}

} // namespace zthost::cli
