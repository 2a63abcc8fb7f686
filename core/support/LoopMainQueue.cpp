#include "core/support/LoopMainQueue.h"

#include <chrono>

namespace brimvale {

LoopMainQueue::LoopMainQueue()
    : mainThread_(std::this_thread::get_id()) {}

void LoopMainQueue::post(Job job) {
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
}

bool LoopMainQueue::isCurrent() const {
    return std::this_thread::get_id() == mainThread_;
}

void LoopMainQueue::run() {
    mainThread_ = std::this_thread::get_id();
    for (;;) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return quitRequested_ || !jobs_.empty(); });
            if (jobs_.empty()) {
                quitRequested_ = false;
                return;
            }
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

void LoopMainQueue::runUntil(const std::function<bool()>& done) {
    mainThread_ = std::this_thread::get_id();
    struct ConsumeQuit {
        LoopMainQueue* queue;
        ~ConsumeQuit() {
            std::lock_guard lock(queue->mutex_);
            queue->quitRequested_ = false;
        }
    } consumeQuit{this};
    while (!done()) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            wake_.wait_for(lock, std::chrono::milliseconds(50),
                           [this] { return quitRequested_ || !jobs_.empty(); });
            if (jobs_.empty()) {
                if (quitRequested_) {
                    return;
                }
                continue;
            }
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

void LoopMainQueue::quit() {
    {
        std::lock_guard lock(mutex_);
        quitRequested_ = true;
    }
    wake_.notify_one();
}

} // namespace brimvale
