#include "core/persistence/cache/ScanCacheWriter.h"

#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/SavedScanNames.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/support/ScanDiagnostics.h"

#include <algorithm>

namespace brimvale {

ScanCacheWriter::ScanCacheWriter(std::shared_ptr<ScanCache> cache, WriteListener onWritten)
    : cache_(std::move(cache))
    , onWritten_(std::move(onWritten))
    , thread_([this] { run(); }) {}

ScanCacheWriter::~ScanCacheWriter() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

namespace {
Date now() {
    return Date::fromUnixSeconds(
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
}
} // namespace

void ScanCacheWriter::save(const std::string& stem, std::shared_ptr<const CacheSnapshot> snapshot,
                           std::string why, std::optional<HistoryLimits> history) {
    {
        std::lock_guard lock(mutex_);
        auto [slot, added] = waiting_.try_emplace(stem);
        if (added) {
            order_.push_back(stem);
        } else {
            ScanDiagnostics::log(slot->second.why + " for stem=" + stem + " superseded by " + why);
            ++superseded_;
            if (!history) {
                history = slot->second.history;
            }
        }
        slot->second = Job{std::move(snapshot), std::move(why), history, now()};
    }
    changed_.notify_all();
}

template <class Matches>
void ScanCacheWriter::dropAndWait(std::unique_lock<std::mutex>& lock, Matches matches) {
    for (auto it = waiting_.begin(); it != waiting_.end();) {
        it = matches(it->first) ? waiting_.erase(it) : std::next(it);
    }
    std::erase_if(order_, [&](const std::string& stem) { return matches(stem); });
    changed_.wait(lock, [&] { return !busy_ || !matches(writing_); });
    std::erase_if(failures_, [&](const auto& failed) { return matches(failed.first); });
}

void ScanCacheWriter::clear(const std::string& stem) {
    std::unique_lock lock(mutex_);
    dropAndWait(lock, [&](const std::string& candidate) { return candidate == stem; });
    // Still under the lock: no write of this stem can start until the files are gone.
    cache_->clear(stem);
}

void ScanCacheWriter::clearAccount(const std::string& accountID) {
    std::unique_lock lock(mutex_);
    dropAndWait(lock, [&](const std::string& candidate) {
        return SavedScanNames::keyBelongsToAccount(candidate, accountID);
    });
    cache_->clearAccount(accountID);
}

void ScanCacheWriter::clearWithPrefix(const std::string& stem, const std::string& /*prefix*/) {
    clearAccount(stem);
}

void ScanCacheWriter::waitForStem(const std::string& stem) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !waiting_.contains(stem) && !(busy_ && writing_ == stem); });
}

bool ScanCacheWriter::waitForAll(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return order_.empty() && !busy_; });
}

std::optional<std::string> ScanCacheWriter::failure(const std::string& stem) const {
    std::lock_guard lock(mutex_);
    const auto found = failures_.find(stem);
    if (found == failures_.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::uint64_t ScanCacheWriter::supersededWrites() const {
    std::lock_guard lock(mutex_);
    return superseded_;
}

void ScanCacheWriter::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return stopping_ || !order_.empty(); });
        if (order_.empty()) {
            return; // stopping, and nothing left to write
        }
        std::string stem = std::move(order_.front());
        order_.pop_front();
        auto job = waiting_.extract(stem);
        writing_ = stem;
        busy_ = true;
        lock.unlock();
        const CacheSnapshot& snapshot = *job.mapped().snapshot;
        const std::optional<std::string> failed = cache_->write(
            stem, [&](const FileAppender& append) { writeCacheSnapshot(snapshot, stem, append); });
        ScanDiagnostics::log(job.mapped().why + (failed ? " not saved stem=" : " saved stem=") +
                             stem + " nodes=" + std::to_string(job.mapped().snapshot->nodeCount()));
        if (!failed && job.mapped().history && !job.mapped().snapshot->partial) {
            // The saved file's identity lets a listing tell whether it is still this scan.
            if (const auto historyFailed =
                    ScanHistory(cache_->directory())
                        .record(stem, *job.mapped().snapshot, job.mapped().finished,
                                *job.mapped().history, now(),
                                cache_->savedFileIdentity(stem).value_or(""))) {
                cache_->log("History not kept for " + stem + ": " + *historyFailed);
            }
        }
        job.mapped().snapshot.reset();
        lock.lock();
        if (failed) {
            failures_[stem] = *failed;
        } else {
            failures_.erase(stem);
        }
        busy_ = false;
        writing_.clear();
        changed_.notify_all();
        if (onWritten_) {
            lock.unlock();
            onWritten_(stem, failed);
            lock.lock();
        }
    }
}

} // namespace brimvale
