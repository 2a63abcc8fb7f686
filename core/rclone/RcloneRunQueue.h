#pragma once

#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <stop_token>
#include <string>

namespace brimvale {

// Admits at most a fixed number of rclone runs at a time; the others wait in the order they
// arrived. A run holds its Slot while its child exists, so the cap bounds the number of rclone
// children of this process. Thread safety: every operation may be called from any thread.
class RcloneRunQueue {
public:
    // "com.brimvale.rclone.run": the process-wide queue of 10 that every run goes through.
    static RcloneRunQueue& shared();

    RcloneRunQueue(std::string label, int maxConcurrentRuns);
    RcloneRunQueue(const RcloneRunQueue&) = delete;
    RcloneRunQueue& operator=(const RcloneRunQueue&) = delete;

    // Permission to run; given back when destroyed.
    class Slot {
    public:
        Slot(Slot&& other) noexcept;
        Slot& operator=(Slot&&) = delete;
        ~Slot();

    private:
        friend class RcloneRunQueue;
        explicit Slot(RcloneRunQueue* queue)
            : queue_(queue) {}
        RcloneRunQueue* queue_;
    };

    // Waits for a slot, first come first served. Throws CancellationError when `stopToken` is
    // stopped before a slot is free (the waiter leaves the queue at once).
    Slot acquire(std::stop_token stopToken);

    const std::string& label() const { return label_; }
    int maxConcurrentRuns() const { return maxConcurrentRuns_; }
    int runningCount() const;
    int waitingCount() const;

private:
    void release();

    const std::string label_;
    const int maxConcurrentRuns_;
    mutable std::mutex mutex_;            // guards running_ and waiters_
    std::condition_variable_any changed_; // a slot was freed or a waiter left
    int running_ = 0;                     // slots held now
    std::list<std::uint64_t> waiters_;    // tickets of the waiting runs, oldest first
    std::uint64_t nextTicket_ = 0;        // guarded by mutex_
};

} // namespace brimvale
