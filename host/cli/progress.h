#pragma once

#include <QString>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace zthost::cli {

// What a long operation is doing, on standard error when it is a terminal: the stage and its
// bytes ("reading bids/17.b64: 12.0 of 64.0 MiB, 2 s"), redrawn in place on one line. A stage
// shows only once it has run for about a second, so quick commands print nothing, and its line
// is cleared when it ends. Off (every call does nothing) when standard error is no terminal.
//
// A stage may be one blocking call (the plug-in's WebZtDecode) that reports no bytes: a drawing
// thread keeps the line current while the calling thread is inside it.
class Progress
{
public:
    enum class Display { Terminal, Off };
    // Terminal when standard error is one, else Off.
    static Display displayForStandardError();

    explicit Progress(Display display = displayForStandardError());
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    bool shown() const { return m_display == Display::Terminal; }

    // A new stage of `totalBytes` (0 when the stage has no byte count).
    void begin(const QString &stage, qint64 totalBytes);
    void advance(qint64 doneBytes);
    // Clears the stage's line, if it was drawn.
    void end();

    // One line that stays (a file done in a batch); only when shown.
    void note(const QString &line);

private:
    void drawLoop();
    void drawLocked();
    void clearLocked();

    Display m_display;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::thread m_drawer;
    bool m_stopping = false;
    bool m_active = false;
    bool m_drawn = false;
    QString m_stage;
    qint64 m_total = 0;
    std::atomic<qint64> m_done{0};
    qint64 m_startedMs = 0;
};

// "1432 B", "1.4 KiB", "64.0 MiB", "1.2 GiB".
QString byteSizeText(qint64 bytes);

} // namespace zthost::cli
