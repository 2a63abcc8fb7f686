#include "core/support/LoopMainQueue.h"
#include "core/support/ManualMainQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace brimvale {
namespace {

TEST(ManualMainQueue, RunsJobsOnlyWhenPumpedInPostingOrder) {
    ManualMainQueue queue;
    std::vector<int> order;
    queue.post([&] { order.push_back(1); });
    queue.post([&] {
        order.push_back(2);
        queue.post([&] { order.push_back(4); }); // posted while running: not in this batch
    });
    queue.post([&] { order.push_back(3); });
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(queue.runPending(), 3);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(queue.pendingCount(), 1u);
    EXPECT_EQ(queue.runUntilIdle(), 1);
    EXPECT_EQ(order.back(), 4);
    EXPECT_TRUE(queue.isCurrent());
    bool otherThreadIsCurrent = true;
    std::thread([&] { otherThreadIsCurrent = queue.isCurrent(); }).join();
    EXPECT_FALSE(otherThreadIsCurrent);
}

TEST(ManualMainQueue, BackgroundThreadWaitsForMainThreadResultsAndErrors) {
    ManualMainQueue queue;
    int mainThreadValue = 41;
    int seen = 0;
    bool errorSeen = false;
    std::thread worker([&] {
        seen = runOnMainAndWait(queue, [&] { return ++mainThreadValue; });
        try {
            runOnMainAndWait(queue, [] { throw std::runtime_error("merge failed"); });
        } catch (const std::runtime_error& error) {
            errorSeen = std::string(error.what()) == "merge failed";
        }
    });
    int ran = 0;
    while (ran < 2) {
        ran += queue.waitAndRun(std::chrono::milliseconds(50));
    }
    worker.join();
    EXPECT_EQ(seen, 42);
    EXPECT_TRUE(errorSeen);
}

TEST(ManualMainQueue, AStoppedWaitIsGivenUpAndItsWorkNeverRuns) {
    // The owner on the main thread stops a task that waits for it, then joins the task without
    // pumping: the wait ends, and the work (which refers to the task's stack) is dropped.
    ManualMainQueue queue;
    std::stop_source stop;
    std::atomic<bool> cancelled = false;
    std::atomic<bool> workRan = false;
    std::atomic<bool> waiting = false;
    std::thread worker([&] {
        int onTheStack = 0;
        try {
            waiting = true;
            runOnMainAndWait(queue, stop.get_token(), [&] {
                ++onTheStack;
                workRan = true;
            });
        } catch (const CancellationError&) {
            cancelled = true;
        }
    });
    while (!waiting || queue.pendingCount() == 0) {
        std::this_thread::yield();
    }
    stop.request_stop();
    worker.join();
    EXPECT_TRUE(cancelled);
    queue.runUntilIdle();
    EXPECT_FALSE(workRan);

    // Not stopped: the work runs and its failure reaches the waiter.
    bool failureSeen = false;
    std::thread other([&] {
        try {
            runOnMainAndWait(queue, stop.get_token() /* already stopped */, [] {});
        } catch (const CancellationError&) {
            failureSeen = true;
        }
    });
    other.join();
    EXPECT_TRUE(failureSeen) << "a stopped token gives up before the work starts";
    std::atomic<bool> thirdDone = false;
    std::thread third([&] {
        try {
            runOnMainAndWait(queue, std::stop_token{}, [] { throw std::runtime_error("x"); });
        } catch (const std::runtime_error&) {
            failureSeen = false;
        }
        thirdDone = true;
    });
    while (!thirdDone) {
        queue.waitAndRun(std::chrono::milliseconds(20));
    }
    third.join();
    EXPECT_FALSE(failureSeen);
}

TEST(MainQueueDeathTest, WaitingForTheMainThreadOnItIsFatal) {
    ManualMainQueue queue;
    EXPECT_DEATH(runOnMainAndWait(queue, [] {}), "main thread");
}

TEST(LoopMainQueue, RunsPostsFromManyThreadsThenDrainsOnQuit) {
    LoopMainQueue queue;
    std::atomic<int> total{0};
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                queue.post([&] { total.fetch_add(1, std::memory_order_relaxed); });
            }
        });
    }
    std::thread closer([&] {
        for (auto& poster : posters) {
            poster.join();
        }
        queue.post([&] { EXPECT_TRUE(queue.isCurrent()); });
        queue.quit();
    });
    queue.run();
    closer.join();
    EXPECT_EQ(total.load(), 4000);
}

} // namespace
} // namespace brimvale
