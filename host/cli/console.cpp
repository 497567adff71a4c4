#include "console.h"

#include <cstdio>

namespace zthost::cli {

namespace {
bool writeAll(std::FILE *stream, const QByteArray &bytes)
{
    const size_t written = std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    return written == size_t(bytes.size()) && std::fflush(stream) == 0;
}
} // namespace

bool writeStandardOutput(const QByteArray &bytes)
{
    return writeAll(stdout, bytes);
}

void printLine(const QString &line)
{
    writeAll(stdout, line.toUtf8() + '\n');
}

void printError(const QString &message)
{
    writeAll(stderr, "zthost: " + message.toUtf8() + '\n');
}

void printMessage(const QString &message)
{
    writeAll(stderr, message.toUtf8() + '\n');
}

} // namespace zthost::cli
