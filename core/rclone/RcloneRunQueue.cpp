#include "core/rclone/RcloneRunQueue.h"

#include "core/support/Task.h"

#include <utility>

namespace brimvale {

RcloneRunQueue& RcloneRunQueue::shared() {
    // Never destroyed: runs may still end on other threads while the process exits.
    static auto* queue = new RcloneRunQueue("com.brimvale.rclone.run", 10);
    return *queue;
}

RcloneRunQueue::RcloneRunQueue(std::string label, int maxConcurrentRuns)
    : label_(std::move(label))
    , maxConcurrentRuns_(maxConcurrentRuns) {}

RcloneRunQueue::Slot::Slot(Slot&& other) noexcept
    : queue_(std::exchange(other.queue_, nullptr)) {}

RcloneRunQueue::Slot::~Slot() {
    if (queue_ != nullptr) {
        queue_->release();
    }
}

RcloneRunQueue::Slot RcloneRunQueue::acquire(std::stop_token stopToken) {
    std::unique_lock lock(mutex_);
    const auto ticket = nextTicket_++;
    const auto position = waiters_.insert(waiters_.end(), ticket);
    const bool admitted = changed_.wait(lock, stopToken, [&] {
        return waiters_.front() == ticket && running_ < maxConcurrentRuns_;
    });
    waiters_.erase(position);
    if (!admitted) {
        lock.unlock();
        // The next waiter may now be at the front with a slot free.
        changed_.notify_all();
        throw CancellationError();
    }
    ++running_;
    lock.unlock();
    // The next waiter may be admitted too when more than one slot is free.
    changed_.notify_all();
    return Slot(this);
}

void RcloneRunQueue::release() {
    {
        std::lock_guard lock(mutex_);
        --running_;
    }
    changed_.notify_all();
}

int RcloneRunQueue::runningCount() const {
    std::lock_guard lock(mutex_);
    return running_;
}

int RcloneRunQueue::waitingCount() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(waiters_.size());
}

} // namespace brimvale
