#pragma once

#include "core/support/FatalError.h"

#include <functional>
#include <future>
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

// Runs `work` on the main thread and waits for its result (or rethrows its exception).
// Only for background threads: called on the main thread it would wait for itself forever.
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
