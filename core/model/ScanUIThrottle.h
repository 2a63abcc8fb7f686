#pragma once

#include <functional>

namespace brimvale {

// Keeps a live scan from redrawing its tree too often: a flush happens only when at least
// minIntervalSeconds plus the last heavy flush's own duration have passed since the previous
// flush started. A flush that took longer than heavyThresholdSeconds becomes the penalty.
// Thread safety: one scan's flush path only (its flushes are serialised there).
class ScanUIThrottle {
public:
    using Clock = std::function<double()>; // absolute time in seconds

    // Uses a monotonic clock.
    ScanUIThrottle();
    explicit ScanUIThrottle(Clock clock);

    // Runs `flushWork` when a flush is due; returns whether it ran.
    bool flushIfDue(const std::function<void()>& flushWork);

    // The two halves of flushIfDue for callers that cannot pass their work as one callable:
    // beginFlushIfDue() decides (and records the start), finishFlush() measures the work.
    bool beginFlushIfDue();
    void finishFlush();

    double lastFlushAt = 0;
    double penaltySeconds = 0;
    double minIntervalSeconds = 3.0;
    double heavyThresholdSeconds = 0.1;

private:
    Clock clock_;
};

// Seconds on the monotonic clock.
double monotonicSeconds();

} // namespace brimvale
