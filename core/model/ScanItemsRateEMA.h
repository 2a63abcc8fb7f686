#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace brimvale {

// The scanning rate shown while a scan runs: the rate between the last two samples, and an
// exponentially smoothed one with a time constant of one minute. The smoothing factor depends
// on the time between samples, so irregular sampling still gives a true one-minute average.
struct ScanItemsRateEMA {
    using Clock = std::chrono::steady_clock;

    std::int64_t lastTotal = 0;
    std::optional<Clock::time_point> lastTime;
    double smoothedPerSecond = 0.0;
    double instantPerSecond = 0.0;

    // Adds one sample: the items scanned so far at `now`. The first sample only sets the
    // baseline; samples 1 ms or less after the previous one are ignored.
    void record(std::int64_t totalItems, Clock::time_point now);
};

// A rate as a whole number of items per second, rounded to nearest; a value outside the signed
// 64-bit range is a fatal error.
std::int64_t roundedRate(double perSecond);

} // namespace brimvale
