#pragma once

#include "core/support/MainQueue.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace brimvale {

// The command line's main loop: run() executes posted jobs on the calling thread, in order,
// until quit() is called. post() and quit() may be called from any thread.
class LoopMainQueue final : public MainQueue {
public:
    LoopMainQueue();

    void post(Job job) override;
    bool isCurrent() const override;

    // Runs jobs until quit(); the jobs already queued when quit() is called still run.
    void run();
    // Runs jobs until `done()` holds, checked before the first job, after every job and, while
    // no job comes, every 50 ms; or until quit(). A quit() is consumed by the run it ends.
    void runUntil(const std::function<bool()>& done);
    void quit();

private:
    std::thread::id mainThread_;
    std::mutex mutex_; // guards jobs_ and quitRequested_
    std::condition_variable wake_;
    std::deque<Job> jobs_;
    bool quitRequested_ = false;
};

} // namespace brimvale
