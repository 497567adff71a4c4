#include "result_output.h"

#include "console.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringView>
#include <QTemporaryFile>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace zthost::cli {

namespace {
// Base64 characters decoded at a time: a multiple of 4, so that no piece splits a group.
constexpr int kAnswerPiece = 4 << 20;

// The value of each ASCII character in the Base64 alphabet, -1 for every other one ('=' too).
struct Base64Values
{
    signed char value[128];
    constexpr Base64Values() : value()
    {
        const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (signed char &v : value)
            v = -1;
        for (int i = 0; i < 64; ++i)
            value[int(alphabet[i])] = static_cast<signed char>(i);
    }
};
constexpr Base64Values kBase64Values;

// `count` characters (a multiple of 4) of Base64 with no padding and nothing outside the
// alphabet, decoded into `out` (three bytes for every four characters). False at the first
// other character, '=' included: such a piece is left to QByteArray::fromBase64, whose
// lenient reading the plug-in's own answers never need but a last piece with padding does.
bool decodePlainBase64(const QChar *chars, int count, char *out)
{
    for (int i = 0; i < count; i += 4) {
        quint32 group = 0;
        for (int j = 0; j < 4; ++j) {
            const ushort c = chars[i + j].unicode();
            const int value = c < 128 ? kBase64Values.value[c] : -1;
            if (value < 0)
                return false;
            group = group << 6 | quint32(value);
        }
        *out++ = char(group >> 16);
        *out++ = char(group >> 8);
        *out++ = char(group);
    }
    return true;
}

// Renames without replacing anything that appeared at `to` meanwhile (Linux 3.15 and later).
int renameKeeping(const QByteArray &from, const QByteArray &to)
{
    return ::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE);
}
} // namespace

bool pathExists(const QString &path)
{
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

QString existingOutputMessage(const QString &path)
{
    return QStringLiteral("%1 exists (--force replaces it)").arg(path);
}

ResultOutput::ResultOutput() = default;
ResultOutput::~ResultOutput() = default; // QTemporaryFile removes an uncommitted file

bool ResultOutput::open(const QString &path, Existing existing, QString *error)
{
    m_path = path;
    m_existing = existing;
    m_written = 0;
    if (path.isEmpty())
        return true;
    if (existing == Existing::Keep && pathExists(path)) {
        *error = existingOutputMessage(path);
        return false;
    }
    const QFileInfo target(path);
    if (target.isDir()) {
        *error = QStringLiteral("cannot write %1: it is a folder").arg(path);
        return false;
    }
    // Beside the final name, so that the rename stays on one file system. QTemporaryFile
    // creates it 0600.
    m_file = std::make_unique<QTemporaryFile>(
        target.absoluteDir().filePath(QStringLiteral(".%1.XXXXXX").arg(target.fileName())));
    if (!m_file->open()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, m_file->errorString());
        m_file.reset();
        return false;
    }
    return true;
}

bool ResultOutput::write(const char *bytes, qint64 size, QString *error)
{
    if (m_path.isEmpty()) {
        if (writeStandardOutput(QByteArray::fromRawData(bytes, int(size)))) {
            m_written += size;
            return true;
        }
        *error = QStringLiteral("cannot write %1 bytes to standard output").arg(m_written + size);
        return false;
    }
    if (!m_file || m_file->write(bytes, size) != size) {
        *error = QStringLiteral("cannot write %1 bytes to %2: %3")
                     .arg(m_written + size)
                     .arg(m_path, m_file ? m_file->errorString() : QStringLiteral("not open"));
        return false;
    }
    m_written += size;
    return true;
}

bool ResultOutput::commit(QString *error)
{
    if (m_path.isEmpty())
        return true;
    if (!m_file->flush()) {
        *error = QStringLiteral("cannot write %1 bytes to %2: %3")
                     .arg(m_written)
                     .arg(m_path, m_file->errorString());
        return false;
    }
    const QByteArray from = QFile::encodeName(m_file->fileName());
    const QByteArray to = QFile::encodeName(m_path);
    const int renamed = m_existing == Existing::Keep ? renameKeeping(from, to)
                                                     : ::rename(from.constData(), to.constData());
    if (renamed != 0) {
        const int cause = errno;
        *error = cause == EEXIST ? existingOutputMessage(m_path)
                                 : QStringLiteral("cannot write %1: %2")
                                       .arg(m_path, QString::fromLocal8Bit(std::strerror(cause)));
        return false;
    }
    m_file->setAutoRemove(false);
    m_file.reset();
    return true;
}

bool writeDecodedAnswer(const QString &base64, ResultOutput &output, QString *error,
                        Progress &progress)
{
    // The plaintext is about three quarters of its Base64.
    progress.begin(QStringLiteral("writing the plaintext"), qint64(base64.size()) / 4 * 3);
    qint64 written = 0;
    // One buffer for every piece: a fresh one each time would be mapped and faulted in again.
    QByteArray buffer(qMin(kAnswerPiece, base64.size()) / 4 * 3, Qt::Uninitialized);
    for (int at = 0; at < base64.size(); at += kAnswerPiece) {
        const int count = qMin(kAnswerPiece, base64.size() - at);
        QByteArray piece;
        if (count % 4 == 0 && decodePlainBase64(base64.constData() + at, count, buffer.data()))
            piece = QByteArray::fromRawData(buffer.constData(), count / 4 * 3);
        else
            piece = QByteArray::fromBase64(QStringView(base64).mid(at, count).toLatin1());
        if (!output.write(piece.constData(), piece.size(), error)) {
            progress.end();
            return false;
        }
        written += piece.size();
        progress.advance(written);
    }
    progress.end();
    return true;
}

} // namespace zthost::cli
