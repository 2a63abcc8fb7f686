#include "core/coordinator/AccountRun.h"

namespace brimvale {

void AccountRun::supersede(std::int64_t generation) {
    generation_ = generation;
    dropLiveBuffers();
}

void AccountRun::start(std::uint64_t taskID, std::string cacheStem) {
    load_ = Load{taskID, generation_};
    cacheStem_ = std::move(cacheStem);
    // Every run's first progress and first partial tree reach the pane.
    lastLiveEmit_.reset();
}

std::optional<std::uint64_t> AccountRun::stop(std::int64_t generation) {
    std::optional<std::uint64_t> task;
    if (load_) {
        task = load_->taskID;
    }
    load_.reset();
    supersede(generation);
    return task;
}

bool AccountRun::loadEnded(std::int64_t generation) {
    if (!load_ || load_->generation != generation) {
        return false;
    }
    load_.reset();
    return true;
}

void AccountRun::dropLiveBuffers() {
    progress_.reset();
    liveRoot_ = nullptr;
}

bool AccountRun::takeLiveTurn(Clock::time_point now, Clock::duration interval) {
    return takeTurn(lastLiveEmit_, now, interval);
}

bool AccountRun::takeCheckpointTurn(Clock::time_point now, Clock::duration interval) {
    return takeTurn(lastCheckpoint_, now, interval);
}

bool AccountRun::takeTurn(std::optional<Clock::time_point>& last, Clock::time_point now,
                          Clock::duration interval) {
    if (last && now - *last < interval) {
        return false;
    }
    last = now;
    return true;
}

} // namespace brimvale
