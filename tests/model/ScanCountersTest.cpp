#include "core/model/ScanCounter.h"
#include "core/model/ScanUIThrottle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace brimvale {
namespace {

TEST(ScanCounter, ConcurrentWorkersLoseNoAddition) {
    ScanCounter counter;
    constexpr int kThreads = 8;
    constexpr int kRounds = 50'000;
    std::atomic<bool> start{false};
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&, t] {
            while (!start.load()) {
            }
            for (int i = 0; i < kRounds; ++i) {
                counter.addFiles(1, t + 1);
                if (i % 10 == 0) {
                    counter.addFolders(1);
                }
                // Readers run alongside the writers; values only grow.
                const auto progress = counter.progress(Stage::listing("x"));
                ASSERT_GE(progress.itemsScanned(), 1);
            }
        });
    }
    start = true;
    for (auto& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(counter.fileCount(), kThreads * kRounds);
    EXPECT_EQ(counter.folderCount(), kThreads * kRounds / 10);
    EXPECT_EQ(counter.bytes(), std::int64_t{kRounds} * (kThreads * (kThreads + 1) / 2));
    const auto progress = counter.progress(Stage::computing("Adding up"));
    EXPECT_EQ(progress.stage.kind(), Stage::Kind::computing);
    EXPECT_EQ(progress.stage.text(), "Adding up");
    EXPECT_EQ(progress.itemsScanned(), kThreads * kRounds + kThreads * kRounds / 10);
}

TEST(ScanCounterDeathTest, ByteSumsSaturateAndItemCountsStillStopTheProcess) {
    ScanCounter counter;
    counter.addFiles(1, INT64_MAX);
    counter.addFiles(1, 1);
    EXPECT_EQ(counter.bytes(), INT64_MAX);
    EXPECT_EQ(counter.fileCount(), 2);
    EXPECT_DEATH(counter.addFiles(INT64_MAX, 0), "file count overflow");
}

TEST(ScanProgressDeathTest, OverflowingItemCountStopsTheProcess) {
    ScanProgress progress{
        .stage = Stage::complete(), .filesScanned = INT64_MAX, .foldersScanned = 1};
    EXPECT_DEATH((void)progress.itemsScanned(), "item count overflow");
}

class FakeClock {
public:
    double now = 1000.0;
    ScanUIThrottle::Clock clock() {
        return [this] {
            return now;
        };
    }
};

TEST(ScanUIThrottle, FlushesAtLeastThreeSecondsApartPlusTheLastHeavyFlush) {
    FakeClock time;
    ScanUIThrottle throttle(time.clock());
    int flushes = 0;
    const auto lightFlush = [&] {
        ++flushes;
    };

    EXPECT_TRUE(throttle.flushIfDue(lightFlush)); // the first flush point always flushes
    EXPECT_EQ(throttle.lastFlushAt, 1000.0);

    time.now = 1002.9;
    EXPECT_FALSE(throttle.flushIfDue(lightFlush));
    time.now = 1003.0;
    EXPECT_TRUE(throttle.flushIfDue(lightFlush));
    EXPECT_EQ(throttle.penaltySeconds, 0.0);

    // A flush that takes 0.5 s delays the next one to 3.5 s after it started.
    time.now = 1006.0;
    EXPECT_TRUE(throttle.flushIfDue([&] {
        ++flushes;
        time.now += 0.5;
    }));
    EXPECT_DOUBLE_EQ(throttle.penaltySeconds, 0.5);
    time.now = 1009.4;
    EXPECT_FALSE(throttle.flushIfDue(lightFlush));
    time.now = 1009.5;
    EXPECT_TRUE(throttle.flushIfDue(lightFlush));
    EXPECT_EQ(throttle.penaltySeconds, 0.0); // a light flush clears the penalty

    // A flush well under the heavy threshold leaves no penalty.
    time.now = 1012.5;
    EXPECT_TRUE(throttle.flushIfDue([&] { time.now += 0.05; }));
    EXPECT_EQ(throttle.penaltySeconds, 0.0);
    EXPECT_EQ(flushes, 4);
}

} // namespace
} // namespace brimvale
