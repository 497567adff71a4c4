#pragma once

#include "progress.h"

#include <QString>

#include <memory>

class QTemporaryFile;

namespace zthost::cli {

// A plaintext written in pieces: to standard output, or to a file. A file is written as a
// temporary file of mode 0600 beside its final name and renamed onto it only once complete,
// so a failure never leaves a partial plaintext under that name; the temporary file is removed
// when the output is dropped before commit().
class ResultOutput
{
public:
    enum class Existing { Replace, Keep };

    ResultOutput();
    ~ResultOutput();
    ResultOutput(const ResultOutput &) = delete;
    ResultOutput &operator=(const ResultOutput &) = delete;

    // `path` empty: standard output. Existing::Keep refuses a path that exists, here and again
    // at the rename, e.g. "out/a.txt exists (--force replaces it)". False with `error` set.
    bool open(const QString &path, Existing existing, QString *error);
    bool write(const char *bytes, qint64 size, QString *error);
    bool commit(QString *error);

private:
    QString m_path;
    Existing m_existing = Existing::Replace;
    std::unique_ptr<QTemporaryFile> m_file;
    qint64 m_written = 0;
};

// Whether `path` exists (as anything, a dangling link too).
bool pathExists(const QString &path);
// The refusal ResultOutput gives for an existing path under Existing::Keep.
QString existingOutputMessage(const QString &path);

// WebZtDecode's answer (the plaintext as Base64) decoded and written a piece at a time, so the
// plaintext is never held whole. `progress` sees the plaintext bytes written.
bool writeDecodedAnswer(const QString &base64, ResultOutput &output, QString *error,
                        Progress &progress);

} // namespace zthost::cli
