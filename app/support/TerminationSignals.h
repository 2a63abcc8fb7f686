#pragma once

#include <QObject>

class QSocketNotifier;

namespace brimvale {

// Turns SIGTERM, SIGINT and SIGHUP (a logout, a shutdown, Ctrl-C in the terminal that started
// the application) into `received` on the main thread, so that the application quits the
// ordinary way and keeps what its running scans found. The handler only writes the signal's
// number to a pipe; a second signal of the same kind ends the process as it would have without
// this object. The previous handlers come back when it is destroyed. One at a time.
class TerminationSignals final : public QObject {
    Q_OBJECT
public:
    explicit TerminationSignals(QObject* parent = nullptr);
    ~TerminationSignals() override;
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

signals:
    void received(int signalNumber);

private:
    void drain();

    int readEnd_ = -1;
    QSocketNotifier* notifier_ = nullptr;
};

} // namespace brimvale
