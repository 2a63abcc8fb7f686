#include "core/support/ManualMainQueue.h"

namespace brimvale {

ManualMainQueue::ManualMainQueue()
    : mainThread_(std::this_thread::get_id()) {}

void ManualMainQueue::post(Job job) {
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    jobPosted_.notify_all();
}

bool ManualMainQueue::isCurrent() const {
    return std::this_thread::get_id() == mainThread_;
}

int ManualMainQueue::runPending() {
    std::deque<Job> batch;
    {
        std::lock_guard lock(mutex_);
        batch.swap(jobs_);
    }
    for (auto& job : batch) {
        job();
    }
    return static_cast<int>(batch.size());
}

int ManualMainQueue::runUntilIdle() {
    int total = 0;
    while (int ran = runPending()) {
        total += ran;
    }
    return total;
}

int ManualMainQueue::waitAndRun(std::chrono::milliseconds timeout) {
    {
        std::unique_lock lock(mutex_);
        jobPosted_.wait_for(lock, timeout, [this] { return !jobs_.empty(); });
    }
    return runUntilIdle();
}

std::size_t ManualMainQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return jobs_.size();
}

} // namespace brimvale
