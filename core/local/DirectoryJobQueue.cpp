#include "core/local/DirectoryJobQueue.h"

#include <algorithm>

namespace brimvale {

void DirectoryJobQueue::push(DirectoryJob job) {
    {
        std::lock_guard guard(lock_);
        jobs_.push_back(std::move(job));
        ++unfinishedJobs_;
    }
    jobAvailable_.notify_one();
}

std::optional<DirectoryJob> DirectoryJobQueue::finishAndTakeNext(std::vector<DirectoryJob>& found,
                                                                 bool finishedOne) {
    std::unique_lock guard(lock_);
    const auto foundCount = static_cast<std::int64_t>(found.size());
    unfinishedJobs_ += foundCount - (finishedOne ? 1 : 0);
    // Reversed so that the first subfolder found is listed first.
    std::move(found.rbegin(), found.rend(), std::back_inserter(jobs_));
    found.clear();
    if (unfinishedJobs_ == 0) {
        guard.unlock();
        jobAvailable_.notify_all();
        scanEnded_.notify_all();
        return std::nullopt;
    }
    // This worker takes one of the new jobs itself; wake idle workers for the rest.
    const auto extra =
        std::min<std::int64_t>(std::max<std::int64_t>(foundCount - 1, 0), idleWorkers_);
    for (std::int64_t i = 0; i < extra; ++i) {
        jobAvailable_.notify_one();
    }
    ++idleWorkers_;
    jobAvailable_.wait(guard, [&] { return stopped_ || !jobs_.empty() || unfinishedJobs_ == 0; });
    --idleWorkers_;
    if (stopped_ || jobs_.empty()) {
        return std::nullopt;
    }
    DirectoryJob job = std::move(jobs_.back());
    jobs_.pop_back();
    return job;
}

void DirectoryJobQueue::finishAbandonedJob() {
    {
        std::lock_guard guard(lock_);
        if (--unfinishedJobs_ != 0) {
            return;
        }
    }
    jobAvailable_.notify_all();
    scanEnded_.notify_all();
}

void DirectoryJobQueue::stop() {
    {
        std::lock_guard guard(lock_);
        stopped_ = true;
        jobs_.clear();
    }
    jobAvailable_.notify_all();
    scanEnded_.notify_all();
}

bool DirectoryJobQueue::waitUntilDone(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock guard(lock_);
    scanEnded_.wait_until(guard, deadline, [&] { return stopped_ || unfinishedJobs_ == 0; });
    return !stopped_ && unfinishedJobs_ == 0;
}

} // namespace brimvale
