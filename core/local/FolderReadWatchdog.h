#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <vector>

namespace brimvale {

// Enforces the per-folder time limit of a scan: each worker has a slot; a read that goes the
// limit without progress has its stop token fired by whoever calls stopOverdueReads (the
// scan's own thread), so a stalled listing stops without help from the reader beyond honouring
// the token. Progress is an entry read: a huge folder on a slow disk that keeps delivering
// entries is listed in full, a dead network mount is given up after the limit.
// Thread safety: each slot's operations come from its worker; stopOverdueReads and stopAll
// from any thread.
class FolderReadWatchdog {
public:
    using Clock = std::chrono::steady_clock;

    FolderReadWatchdog(int slotCount, Clock::duration limit);

    // Before worker `slot` reads a folder: the token that stops this read.
    std::stop_token beginRead(int slot);
    // From worker `slot` while it reads: the read is making progress.
    void noteProgress(int slot);
    // After the read; true when it was stopped because it ran past the limit.
    bool endRead(int slot);
    // Stops every read that made no progress for the limit; returns when the next running
    // read reaches the limit, if one is running.
    std::optional<Clock::time_point> stopOverdueReads(Clock::time_point now);
    // Stops every running read and every later one (the scan was cancelled).
    void stopAll();
    // The slots whose read was stopped at least `grace` ago and has still not ended: a read
    // stuck in the kernel (a hung network or FUSE mount), which no stop token reaches. Each is
    // reported once.
    std::vector<int> readsStuckAfterStop(Clock::time_point now, Clock::duration grace);

private:
    struct Slot {
        std::mutex lock;                            // guards the three fields below
        std::stop_source source;                    // stops the slot's current read
        std::optional<Clock::time_point> startedAt; // while a read runs
        bool timedOut = false;                      // the current read ran past the limit
        std::optional<Clock::time_point> stoppedAt; // when the current read was told to stop
        bool reportedStuck = false;                 // readsStuckAfterStop named it already
        // When the current read last made progress, in Clock ticks; written by the worker
        // without the lock, read by stopOverdueReads.
        std::atomic<Clock::rep> lastProgress{0};
    };

    Clock::duration limit_;
    std::vector<std::unique_ptr<Slot>> slots_;
    std::atomic<bool> stoppedForGood_{false}; // set by stopAll: later reads start stopped
};

} // namespace brimvale
