#pragma once

#include <QByteArray>

#include <cstdio>
#include <functional>

// Stands in for the C stream `stderr` while it lives: each write to it reaches `onWrite` at
// once, inside the writer's own call, and is kept for text(); none reaches the real stream.
// Writes straight to file descriptor 2 are not seen. Not nestable.
class StandardErrorWatch
{
public:
    explicit StandardErrorWatch(std::function<void(const QByteArray &written)> onWrite = {});
    ~StandardErrorWatch();
    StandardErrorWatch(const StandardErrorWatch &) = delete;
    StandardErrorWatch &operator=(const StandardErrorWatch &) = delete;

    QByteArray text() const { return m_text; }

private:
    static ssize_t written(void *cookie, const char *data, size_t size);

    std::function<void(const QByteArray &)> m_onWrite;
    QByteArray m_text;
    FILE *m_saved = nullptr;
    FILE *m_stream = nullptr;
};
