#include "progress.h"

#include <QDateTime>

#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace zthost::cli {

namespace {
// A stage shorter than this shows nothing.
constexpr qint64 kShowAfterMs = 1000;
constexpr auto kRedrawEvery = std::chrono::milliseconds(250);

qint64 nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

void writeError(const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}
} // namespace

QString byteSizeText(qint64 bytes)
{
    constexpr double kKiB = 1024.0;
    if (bytes < 1024)
        return QStringLiteral("%1 B").arg(bytes);
    if (bytes < 1024 * 1024)
        return QStringLiteral("%1 KiB").arg(bytes / kKiB, 0, 'f', 1);
    if (bytes < 1024LL * 1024 * 1024)
        return QStringLiteral("%1 MiB").arg(bytes / kKiB / kKiB, 0, 'f', 1);
    return QStringLiteral("%1 GiB").arg(bytes / kKiB / kKiB / kKiB, 0, 'f', 1);
}

Progress::Display Progress::displayForStandardError()
{
    return isatty(STDERR_FILENO) ? Display::Terminal : Display::Off;
}

Progress::Progress(Display display) : m_display(display)
{
    if (shown())
        m_drawer = std::thread([this] { drawLoop(); });
}

Progress::~Progress()
{
    if (!shown())
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        clearLocked();
    }
    m_wake.notify_all();
    m_drawer.join();
}

void Progress::begin(const QString &stage, qint64 totalBytes)
{
    if (!shown())
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    clearLocked();
    m_stage = stage;
    m_total = totalBytes;
    m_done = 0;
    m_startedMs = nowMs();
    m_active = true;
}

void Progress::advance(qint64 doneBytes)
{
    m_done = doneBytes;
}

void Progress::end()
{
    if (!shown())
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_active = false;
    clearLocked();
}

void Progress::note(const QString &line)
{
    if (!shown())
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    clearLocked();
    writeError(line.toUtf8() + '\n');
}

void Progress::drawLoop()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        m_wake.wait_for(lock, kRedrawEvery);
        if (!m_stopping && m_active && nowMs() - m_startedMs >= kShowAfterMs)
            drawLocked();
    }
}

void Progress::drawLocked()
{
    const qint64 seconds = (nowMs() - m_startedMs) / 1000;
    QString bytes;
    if (m_total > 0 && m_done > 0)
        bytes = QStringLiteral("%1 of %2").arg(byteSizeText(m_done), byteSizeText(m_total));
    else if (m_total > 0)
        bytes = byteSizeText(m_total);
    const QString line = bytes.isEmpty()
                             ? QStringLiteral("%1, %2 s").arg(m_stage).arg(seconds)
                             : QStringLiteral("%1: %2, %3 s").arg(m_stage, bytes).arg(seconds);
    // Back to the start of the line and clear it: the stage redraws over itself.
    writeError("\r\033[K" + line.toUtf8());
    m_drawn = true;
}

void Progress::clearLocked()
{
    if (!m_drawn)
        return;
    writeError("\r\033[K");
    m_drawn = false;
}

} // namespace zthost::cli
