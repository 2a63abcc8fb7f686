#pragma once

#include "core/support/FatalError.h"
#include "core/support/Task.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stop_token>
#include <type_traits>
#include <utility>

namespace brimvale {

// The main thread's job queue. The main thread owns the coordinator and every tree on screen;
// other threads hand work to it with post(). Thread safety: post() and isCurrent() may be
// called from any thread.
class MainQueue {
public:
    using Job = std::function<void()>;

    virtual ~MainQueue() = default;

    // Queues a job to run on the main thread, after every job posted before it.
    virtual void post(Job job) = 0;
    // True when the calling thread is the main thread of this queue.
    virtual bool isCurrent() const = 0;
};

// Runs `work` on the main thread and waits for it (its exception is rethrown). Only for
// background threads: called on the main thread it would wait for itself forever.
//
// When `stopToken` is stopped before the main thread has started the work, the wait is given
// up with CancellationError and the work never runs (it may refer to the caller's stack); once
// started, the work is waited for. So an owner on the main thread may stop a task and join it
// without pumping its queue.
template <class Work>
void runOnMainAndWait(MainQueue& mainQueue, std::stop_token stopToken, Work&& work) {
    if (mainQueue.isCurrent()) {
        fatalError("runOnMainAndWait called on the main thread");
    }
    struct Shared {
        std::mutex mutex;
        std::condition_variable changed;
        bool started = false;
        bool finished = false;
        bool abandoned = false;
        std::exception_ptr failure;
    };
    auto shared = std::make_shared<Shared>();
    std::function<void()> run = [&work] {
        work();
    };
    mainQueue.post([shared, run] {
        {
            std::lock_guard lock(shared->mutex);
            if (shared->abandoned) {
                return;
            }
            shared->started = true;
        }
        std::exception_ptr failure;
        try {
            run();
        } catch (...) {
            failure = std::current_exception();
        }
        {
            std::lock_guard lock(shared->mutex);
            shared->finished = true;
            shared->failure = failure;
        }
        shared->changed.notify_all();
    });
    // Registered before the lock is taken: with a token already stopped, the callback runs at
    // once, on this thread.
    std::stop_callback wake(stopToken, [&shared] {
        std::lock_guard inner(shared->mutex);
        shared->changed.notify_all();
    });
    std::unique_lock lock(shared->mutex);
    shared->changed.wait(
        lock, [&] { return shared->finished || (!shared->started && stopToken.stop_requested()); });
    if (!shared->finished) {
        shared->abandoned = true;
        throw CancellationError();
    }
    if (shared->failure) {
        std::rethrow_exception(shared->failure);
    }
}

// The same without a way to give up, returning the work's result.
template <class Work> auto runOnMainAndWait(MainQueue& mainQueue, Work&& work) {
    using Result = std::invoke_result_t<Work>;
    if (mainQueue.isCurrent()) {
        fatalError("runOnMainAndWait called on the main thread");
    }
    auto promise = std::make_shared<std::promise<Result>>();
    auto future = promise->get_future();
    mainQueue.post([promise, work = std::forward<Work>(work)]() mutable {
        try {
            if constexpr (std::is_void_v<Result>) {
                work();
                promise->set_value();
            } else {
                promise->set_value(work());
            }
        } catch (...) {
            promise->set_exception(std::current_exception());
        }
    });
    return future.get();
}

} // namespace brimvale
