#pragma once

#include <QByteArray>

// Captures what the process writes to standard output (file descriptor 1, C stdio included)
// between construction and text(). Not nestable.
class StdoutCapture
{
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    // Stops capturing (once) and answers everything captured.
    QByteArray text();

private:
    void stop();
    int m_savedFd = -1;
    int m_captureFd = -1;
    QByteArray m_text;
};
