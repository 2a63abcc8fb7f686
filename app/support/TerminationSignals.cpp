#include "app/support/TerminationSignals.h"

#include "core/support/FatalError.h"

#include <QSocketNotifier>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace brimvale {
namespace {

constexpr std::array kSignals{SIGTERM, SIGINT, SIGHUP};

// The pipe's write end, read by the handler; -1 when no object listens.
std::atomic<int> writeEnd{-1};
std::array<struct sigaction, kSignals.size()> previousActions{};

void onSignal(int signalNumber) {
    const int savedErrno = errno;
    const int fd = writeEnd.load();
    if (fd >= 0) {
        const auto byte = static_cast<unsigned char>(signalNumber);
        // A full pipe already holds a notice; nothing is lost by dropping this one.
        [[maybe_unused]] const ssize_t written = ::write(fd, &byte, 1);
    }
    errno = savedErrno;
}

} // namespace

TerminationSignals::TerminationSignals(QObject* parent)
    : QObject(parent) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        fatalError("cannot make the pipe for termination signals");
    }
    if (writeEnd.exchange(ends[1]) != -1) {
        fatalError("only one TerminationSignals object may listen at a time");
    }
    readEnd_ = ends[0];
    notifier_ = new QSocketNotifier(readEnd_, QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &TerminationSignals::drain);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        struct sigaction action {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        // The first signal asks for a clean exit; the next one is not caught.
        action.sa_flags = SA_RESTART | SA_RESETHAND;
        ::sigaction(kSignals[i], &action, &previousActions[i]);
    }
}

TerminationSignals::~TerminationSignals() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], &previousActions[i], nullptr);
    }
    const int fd = writeEnd.exchange(-1);
    notifier_->setEnabled(false);
    ::close(fd);
    ::close(readEnd_);
}

void TerminationSignals::drain() {
    unsigned char numbers[16];
    for (;;) {
        const ssize_t count = ::read(readEnd_, numbers, sizeof numbers);
        if (count <= 0) {
            return;
        }
        for (ssize_t i = 0; i < count; ++i) {
            emit received(numbers[i]);
        }
    }
}

} // namespace brimvale
