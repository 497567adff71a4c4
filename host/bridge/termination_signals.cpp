#include "bridge/termination_signals.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace zthost::bridge {

namespace {

int g_pipe[2] = {-1, -1};
struct sigaction g_previousInt;
struct sigaction g_previousTerm;

void onSignal(int signalNumber)
{
    const int savedErrno = errno;
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    // Nothing to do when the pipe is full: a stop is already on its way.
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
    errno = savedErrno;
}

} // namespace

TerminationSignals::TerminationSignals(QObject *parent) : QObject(parent)
{
    if (g_pipe[0] != -1 || ::pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (::sigaction(SIGINT, &action, &g_previousInt) != 0
        || ::sigaction(SIGTERM, &action, &g_previousTerm) != 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(g_pipe[0], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &TerminationSignals::drain);
    m_installed = true;
}

TerminationSignals::~TerminationSignals()
{
    if (m_installed) {
        ::sigaction(SIGINT, &g_previousInt, nullptr);
        ::sigaction(SIGTERM, &g_previousTerm, nullptr);
    }
    m_notifier.reset();
    if (g_pipe[0] != -1) {
        ::close(g_pipe[0]);
        ::close(g_pipe[1]);
        g_pipe[0] = g_pipe[1] = -1;
    }
}

void TerminationSignals::drain()
{
    unsigned char byte = 0;
    int last = 0;
    while (::read(g_pipe[0], &byte, 1) == 1)
        last = byte;
    if (last != 0)
        emit received(last);
}

} // namespace zthost::bridge
