#include "core/local/FolderReadWatchdog.h"

#include <algorithm>

namespace brimvale {

FolderReadWatchdog::FolderReadWatchdog(int slotCount, Clock::duration limit)
    : limit_(limit) {
    for (int i = 0; i < slotCount; ++i) {
        slots_.push_back(std::make_unique<Slot>());
    }
}

std::stop_token FolderReadWatchdog::beginRead(int slot) {
    Slot& s = *slots_[static_cast<std::size_t>(slot)];
    std::lock_guard guard(s.lock);
    if (s.source.stop_requested()) {
        s.source = std::stop_source();
    }
    if (stoppedForGood_.load(std::memory_order_acquire)) {
        s.source.request_stop();
    }
    s.startedAt = Clock::now();
    s.lastProgress.store(s.startedAt->time_since_epoch().count(), std::memory_order_relaxed);
    s.timedOut = false;
    s.stoppedAt = s.source.stop_requested() ? s.startedAt : std::nullopt;
    s.reportedStuck = false;
    return s.source.get_token();
}

void FolderReadWatchdog::noteProgress(int slot) {
    slots_[static_cast<std::size_t>(slot)]->lastProgress.store(
        Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
}

bool FolderReadWatchdog::endRead(int slot) {
    Slot& s = *slots_[static_cast<std::size_t>(slot)];
    std::lock_guard guard(s.lock);
    s.startedAt.reset();
    return s.timedOut;
}

std::optional<FolderReadWatchdog::Clock::time_point>
FolderReadWatchdog::stopOverdueReads(Clock::time_point now) {
    std::optional<Clock::time_point> next;
    for (auto& slot : slots_) {
        std::lock_guard guard(slot->lock);
        if (!slot->startedAt || slot->timedOut) {
            continue;
        }
        const Clock::time_point lastProgress{
            Clock::duration(slot->lastProgress.load(std::memory_order_relaxed))};
        const auto deadline = std::max(*slot->startedAt, lastProgress) + limit_;
        if (deadline <= now) {
            slot->timedOut = true;
            slot->stoppedAt = now;
            slot->source.request_stop();
        } else if (!next || deadline < *next) {
            next = deadline;
        }
    }
    return next;
}

void FolderReadWatchdog::stopAll() {
    stoppedForGood_.store(true, std::memory_order_release);
    const auto now = Clock::now();
    for (auto& slot : slots_) {
        std::lock_guard guard(slot->lock);
        slot->source.request_stop();
        if (slot->startedAt && !slot->stoppedAt) {
            slot->stoppedAt = now;
        }
    }
}

std::vector<int> FolderReadWatchdog::readsStuckAfterStop(Clock::time_point now,
                                                         Clock::duration grace) {
    std::vector<int> stuck;
    for (std::size_t index = 0; index < slots_.size(); ++index) {
        Slot& slot = *slots_[index];
        std::lock_guard guard(slot.lock);
        if (slot.startedAt && slot.stoppedAt && !slot.reportedStuck &&
            now - *slot.stoppedAt >= grace) {
            slot.reportedStuck = true;
            stuck.push_back(static_cast<int>(index));
        }
    }
    return stuck;
}

} // namespace brimvale
