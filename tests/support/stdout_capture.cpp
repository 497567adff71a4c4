#include "stdout_capture.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

StdoutCapture::StdoutCapture()
{
    std::fflush(stdout);
    char path[] = "/tmp/zt-stdout-XXXXXX";
    m_captureFd = mkstemp(path);
    if (m_captureFd < 0)
        std::abort();
    unlink(path);
    m_savedFd = dup(STDOUT_FILENO);
    dup2(m_captureFd, STDOUT_FILENO);
}

StdoutCapture::~StdoutCapture()
{
    stop();
}

QByteArray StdoutCapture::text()
{
    stop();
    return m_text;
}

void StdoutCapture::stop()
{
    if (m_savedFd < 0)
        return;
    std::fflush(stdout);
    dup2(m_savedFd, STDOUT_FILENO);
    close(m_savedFd);
    m_savedFd = -1;

    lseek(m_captureFd, 0, SEEK_SET);
    char buffer[4096];
    ssize_t n;
    while ((n = read(m_captureFd, buffer, sizeof buffer)) > 0)
        m_text.append(buffer, static_cast<int>(n));
    close(m_captureFd);
    m_captureFd = -1;
}
