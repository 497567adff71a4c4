#pragma once

#include <QObject>

#include <memory>

class QSocketNotifier;

namespace zthost::bridge {

// Turns SIGINT and SIGTERM into the `received` signal, delivered by the event loop of the
// thread that made the object, so that a server can stop cleanly: a signal handler may do
// nothing but write a byte to a pipe, which a QSocketNotifier reads. One instance per process.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    explicit TerminationSignals(QObject *parent = nullptr);
    // The previous handlers are put back.
    ~TerminationSignals() override;

    // False when the pipe or the handlers could not be installed.
    bool isInstalled() const { return m_installed; }

signals:
    // `signalNumber` is SIGINT or SIGTERM.
    void received(int signalNumber);

private:
    void drain();

    bool m_installed = false;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace zthost::bridge
