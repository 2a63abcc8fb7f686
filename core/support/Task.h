#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>

namespace brimvale {

// Thrown by an operation that stopped because its task was cancelled. Never a failure to show:
// callers that catch it simply drop the result.
class CancellationError : public std::exception {
public:
    const char* what() const noexcept override { return "The operation was cancelled."; }
};

// Throws CancellationError when a stop was requested on `token`.
inline void throwIfCancelled(const std::stop_token& token) {
    if (token.stop_requested()) {
        throw CancellationError();
    }
}

// A background body (a load, a scan, a cache write) running on a thread of its own.
// Cancellation is cooperative: cancel() requests a stop on the token the body was given; the
// body checks it (or registers a std::stop_callback) and ends, usually with CancellationError,
// which the task swallows. Destroying a Task cancels it and waits for the body to end, so no
// thread outlives its owner. Thread safety: cancel() and isFinished() may be called from any
// thread; the rest from the owner's.
class Task {
public:
    using Body = std::function<void(std::stop_token)>;

    Task() = default;
    // Starts `body` on a new thread; `label` names the thread in debuggers and logs.
    static Task start(std::string label, Body body);

    Task(Task&&) noexcept = default;
    Task& operator=(Task&& other) noexcept;
    ~Task();

    void cancel();
    // Lets the body run on without an owner: the destructor then neither cancels nor waits.
    // For owners that must not wait (the body may be waiting for the owner's thread).
    void detach();
    bool isCancelled() const;
    bool isFinished() const;
    bool isRunning() const { return state_ != nullptr && !isFinished(); }
    // Waits for the body to end. A non-cancellation exception that escaped the body is rethrown.
    void wait();
    const std::string& label() const;

private:
    struct State;
    std::shared_ptr<State> state_;
    std::jthread thread_;
};

} // namespace brimvale
