#pragma once

#include <functional>
#include <memory>

namespace brimvale::cli {

// Turns Ctrl-C (SIGINT) and SIGTERM into a call of `onInterrupt` on a thread of its own, so a
// long command can stop cleanly instead of dying mid-write. The previous handlers come back
// when the listener is destroyed. One listener at a time.
class InterruptListener {
public:
    explicit InterruptListener(std::function<void()> onInterrupt);
    ~InterruptListener();
    InterruptListener(const InterruptListener&) = delete;
    InterruptListener& operator=(const InterruptListener&) = delete;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace brimvale::cli
