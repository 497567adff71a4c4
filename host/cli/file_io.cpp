#include "file_io.h"

#include "console.h"

#include <QFile>
#include <QFileInfo>

namespace zthost::cli {

bool readWholeFile(const QString &path, QByteArray *bytes, QString *error)
{
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
    if (path.isEmpty()) {
        if (writeStandardOutput(bytes))
            return true;
        *error = QStringLiteral("cannot write %1 bytes to standard output").arg(bytes.size());
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    if (file.write(bytes) != bytes.size() || !file.flush()) {
        *error = QStringLiteral("cannot write %1 bytes to %2: %3")
                     .arg(bytes.size())
                     .arg(path, file.errorString());
        return false;
    }
    return true;
}

} // namespace zthost::cli
