#pragma once

#include "core/support/MainQueue.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace brimvale {

// A main queue that runs jobs only when the owner pumps it, so tests decide every
// interleaving. The thread that creates it is its main thread.
class ManualMainQueue final : public MainQueue {
public:
    ManualMainQueue();

    void post(Job job) override;
    bool isCurrent() const override;

    // Runs the jobs that are queued now (not those they post); returns how many ran.
    int runPending();
    // Runs jobs until the queue is empty, including jobs posted by the jobs it runs.
    int runUntilIdle();
    // Waits (up to `timeout`) until a job is queued, then runs until idle; returns how many ran.
    int waitAndRun(std::chrono::milliseconds timeout);
    std::size_t pendingCount() const;

private:
    std::thread::id mainThread_;
    mutable std::mutex mutex_; // guards jobs_
    std::condition_variable jobPosted_;
    std::deque<Job> jobs_;
};

} // namespace brimvale
