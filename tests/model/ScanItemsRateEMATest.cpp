#include "core/model/ScanItemsRateEMA.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>

namespace brimvale {
namespace {

using namespace std::chrono_literals;

TEST(ScanItemsRateEMA, FirstSampleIsTheBaselineAndTheAverageFollowsIrregularSampling) {
    const auto start = ScanItemsRateEMA::Clock::time_point{} + 1h;
    ScanItemsRateEMA rate;
    rate.record(0, start);
    EXPECT_EQ(rate.smoothedPerSecond, 0.0);
    EXPECT_EQ(rate.instantPerSecond, 0.0);

    // 0 → 600 items over 10 s: instant 60/s; alpha = 1 − e^(−1/6) ≈ 0.1535, so ≈ 9.2/s.
    rate.record(600, start + 10s);
    EXPECT_DOUBLE_EQ(rate.instantPerSecond, 60.0);
    EXPECT_NEAR(rate.smoothedPerSecond, 60.0 * (1.0 - std::exp(-1.0 / 6.0)), 1e-12);
    EXPECT_NEAR(rate.smoothedPerSecond, 9.21, 0.01);
    EXPECT_EQ(roundedRate(rate.smoothedPerSecond), 9);

    // Two samples 5 s apart weigh as one of 10 s would: same rate, same average afterwards.
    ScanItemsRateEMA halves = rate;
    ScanItemsRateEMA whole = rate;
    halves.record(900, start + 15s);
    halves.record(1200, start + 20s);
    whole.record(1200, start + 20s);
    EXPECT_NEAR(halves.smoothedPerSecond, whole.smoothedPerSecond, 1e-9);

    // A count that goes down (a rescan's counter restarting) gives a negative instant rate
    // rather than a wrapped one.
    rate.record(0, start + 20s);
    EXPECT_LT(rate.instantPerSecond, 0.0);
}

TEST(ScanItemsRateEMA, SamplesOneMillisecondApartOrLessAreIgnored) {
    const auto start = ScanItemsRateEMA::Clock::time_point{} + 1h;
    ScanItemsRateEMA rate;
    rate.record(0, start);
    rate.record(600, start + 10s);
    const ScanItemsRateEMA before = rate;

    rate.record(1'000'000, start + 10s);       // same instant
    rate.record(1'000'000, start + 10s + 1ms); // exactly 1 ms later
    rate.record(1'000'000, start + 10s - 5s);  // a clock that went backwards
    EXPECT_EQ(rate.lastTotal, before.lastTotal);
    EXPECT_EQ(rate.lastTime, before.lastTime);
    EXPECT_EQ(rate.smoothedPerSecond, before.smoothedPerSecond);
    EXPECT_EQ(rate.instantPerSecond, before.instantPerSecond);

    // Just over 1 ms counts.
    rate.record(601, start + 10s + 1100us);
    EXPECT_NEAR(rate.instantPerSecond, 1.0 / 0.0011, 1e-6);
}

TEST(ScanItemsRateEMA, RoundingToWholeItemsPerSecond) {
    EXPECT_EQ(roundedRate(0.5), 1); // half away from zero
    EXPECT_EQ(roundedRate(0.49), 0);
    EXPECT_EQ(roundedRate(9.2), 9);
    EXPECT_EQ(roundedRate(-2.5), -3);
    EXPECT_EQ(roundedRate(9.0e18), 9'000'000'000'000'000'000);
    EXPECT_DEATH(roundedRate(9.3e18), "scanning rate out of range");
    EXPECT_DEATH(roundedRate(std::numeric_limits<double>::quiet_NaN()), "out of range");
    EXPECT_DEATH(roundedRate(std::numeric_limits<double>::infinity()), "out of range");
}

} // namespace
} // namespace brimvale
