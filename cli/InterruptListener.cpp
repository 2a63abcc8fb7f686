#include "cli/InterruptListener.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace brimvale::cli {
namespace {

std::atomic<int> signalPipeWriteEnd{-1};

extern "C" void forwardSignal(int) {
    const int savedErrno = errno;
    const int fd = signalPipeWriteEnd.load();
    if (fd >= 0) {
        const char byte = 1;
        [[maybe_unused]] const auto written = ::write(fd, &byte, 1);
    }
    errno = savedErrno;
}

} // namespace

struct InterruptListener::State {
    int readEnd = -1;
    int writeEnd = -1;
    int stopRead = -1;
    int stopWrite = -1;
    struct sigaction previousInterrupt {};
    struct sigaction previousTerminate {};
    std::thread watcher;
};

InterruptListener::InterruptListener(std::function<void()> onInterrupt)
    : state_(std::make_unique<State>()) {
    int signalPipe[2];
    int stopPipe[2];
    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    if (::pipe2(stopPipe, O_CLOEXEC) != 0) {
        ::close(signalPipe[0]);
        ::close(signalPipe[1]);
        return;
    }
    state_->readEnd = signalPipe[0];
    state_->writeEnd = signalPipe[1];
    state_->stopRead = stopPipe[0];
    state_->stopWrite = stopPipe[1];
    signalPipeWriteEnd.store(state_->writeEnd);

    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &state_->previousInterrupt);
    ::sigaction(SIGTERM, &action, &state_->previousTerminate);

    state_->watcher = std::thread([state = state_.get(), onInterrupt = std::move(onInterrupt)] {
        pollfd watched[2] = {{state->readEnd, POLLIN, 0}, {state->stopRead, POLLIN, 0}};
        bool fired = false;
        for (;;) {
            if (::poll(watched, 2, -1) < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return;
            }
            if (watched[1].revents != 0) {
                return;
            }
            char drained[16];
            while (::read(state->readEnd, drained, sizeof drained) > 0) {
            }
            // A second Ctrl-C while stopping is not a second stop.
            if (!fired) {
                fired = true;
                onInterrupt();
            }
        }
    });
}

InterruptListener::~InterruptListener() {
    if (state_->readEnd < 0) {
        return;
    }
    ::sigaction(SIGINT, &state_->previousInterrupt, nullptr);
    ::sigaction(SIGTERM, &state_->previousTerminate, nullptr);
    signalPipeWriteEnd.store(-1);
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(state_->stopWrite, &byte, 1);
    state_->watcher.join();
    for (const int fd : {state_->readEnd, state_->writeEnd, state_->stopRead, state_->stopWrite}) {
        ::close(fd);
    }
}

} // namespace brimvale::cli
