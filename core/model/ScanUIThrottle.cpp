#include "core/model/ScanUIThrottle.h"

#include <chrono>

namespace brimvale {

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

ScanUIThrottle::ScanUIThrottle()
    : ScanUIThrottle(monotonicSeconds) {}

ScanUIThrottle::ScanUIThrottle(Clock clock)
    : clock_(std::move(clock)) {}

bool ScanUIThrottle::beginFlushIfDue() {
    const double now = clock_();
    if (penaltySeconds + minIntervalSeconds > now - lastFlushAt) {
        return false;
    }
    lastFlushAt = now;
    penaltySeconds = 0;
    return true;
}

void ScanUIThrottle::finishFlush() {
    const double elapsed = clock_() - lastFlushAt;
    if (elapsed > heavyThresholdSeconds) {
        penaltySeconds = elapsed;
    }
}

bool ScanUIThrottle::flushIfDue(const std::function<void()>& flushWork) {
    if (!beginFlushIfDue()) {
        return false;
    }
    flushWork();
    finishFlush();
    return true;
}

} // namespace brimvale
