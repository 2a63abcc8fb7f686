#pragma once

#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/history/ScanHistory.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace brimvale {

class ScanCache;

// Encodes and writes saved scans on a thread of its own, in the order they were asked for.
// Each stem has at most one write waiting: a newer tree for the same stem replaces the one
// still waiting (it is older, so writing it would only be undone), and the write in progress
// finishes first. So a checkpoint asked for before a finished scan's save can never land after
// it, and nothing queued before a clear is written after it.
// A write that fails (a full disk, a read-only or missing folder) is remembered for its stem
// until a later write of it succeeds or it is cleared; the outcome of every write is told to
// the write listener.
// Thread safety: every member may be called from any thread.
class ScanCacheWriter {
public:
    // Called on the writer's thread after each write, with why it failed (none: it succeeded).
    using WriteListener =
        std::function<void(const std::string& stem, const std::optional<std::string>& failure)>;

    explicit ScanCacheWriter(std::shared_ptr<ScanCache> cache, WriteListener onWritten = {});
    // Writes what is still queued, then ends its thread: a save asked for is never lost.
    ~ScanCacheWriter();

    ScanCacheWriter(const ScanCacheWriter&) = delete;
    ScanCacheWriter& operator=(const ScanCacheWriter&) = delete;

    // Queues `snapshot` to be written as the saved scan of the key `stem` (the key is stored in
    // it); `why` goes to the diagnostics log. With `history`, a finished scan also enters the
    // key's scan history (ScanHistory) once saved, within those limits; a partial one never
    // does. A waiting save that is replaced hands its history wish on to the newer one.
    void save(const std::string& stem, std::shared_ptr<const CacheSnapshot> snapshot,
              std::string why, std::optional<HistoryLimits> history = std::nullopt);
    // Drops the stem's waiting write, waits for the one in progress, then removes the stem's
    // files (ScanCache::clear).
    void clear(const std::string& stem);
    // The same for every saved scan of the account (ScanCache::clearAccount): its own key and
    // the keys of its folders.
    void clearAccount(const std::string& accountID);
    // Kept for callers written when folder scans were "<id>_…": clears the account `stem`
    // (clearAccount); the prefix is not needed any more.
    void clearWithPrefix(const std::string& stem, const std::string& prefix);
    // Waits until the stem's queued write, if any, is on disk: what a load reads next is then
    // the newest tree asked for.
    void waitForStem(const std::string& stem);
    // Waits until everything queued so far is written; true when it was within `timeout`.
    bool waitForAll(std::chrono::milliseconds timeout);
    // Why the stem's last write failed; none when it succeeded, was cleared or never ran.
    std::optional<std::string> failure(const std::string& stem) const;
    // How many writes were dropped because a newer one for the same stem replaced them.
    std::uint64_t supersededWrites() const;

private:
    struct Job {
        std::shared_ptr<const CacheSnapshot> snapshot;
        std::string why;
        std::optional<HistoryLimits> history;
        Date finished;
    };
    void run();
    template <class Matches> void dropAndWait(std::unique_lock<std::mutex>& lock, Matches matches);

    std::shared_ptr<ScanCache> cache_;
    WriteListener onWritten_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, Job> waiting_; // by stem
    std::deque<std::string> order_;      // stems with a waiting job, oldest first
    std::string writing_;                // the stem being written ("" when none)
    bool busy_ = false;
    bool stopping_ = false;
    std::uint64_t superseded_ = 0;
    std::map<std::string, std::string> failures_; // by stem
    std::thread thread_;
};

} // namespace brimvale
