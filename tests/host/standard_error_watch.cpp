#include "standard_error_watch.h"

#include <cstdlib>

StandardErrorWatch::StandardErrorWatch(std::function<void(const QByteArray &)> onWrite)
    : m_onWrite(std::move(onWrite))
{
    cookie_io_functions_t functions{};
    functions.write = &StandardErrorWatch::written;
    m_stream = fopencookie(this, "w", functions);
    if (!m_stream)
        std::abort();
    // Unbuffered: a write reaches the callback while the writer is still in its call.
    std::setvbuf(m_stream, nullptr, _IONBF, 0);
    std::fflush(stderr);
    m_saved = stderr;
    stderr = m_stream;
}

StandardErrorWatch::~StandardErrorWatch()
{
    stderr = m_saved;
    std::fclose(m_stream);
}

ssize_t StandardErrorWatch::written(void *cookie, const char *data, size_t size)
{
    auto *watch = static_cast<StandardErrorWatch *>(cookie);
    const QByteArray bytes(data, int(size));
    watch->m_text += bytes;
    if (watch->m_onWrite)
        watch->m_onWrite(bytes);
    return ssize_t(size);
}
