#include "core/support/Task.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>

namespace brimvale {
namespace {

TEST(Task, CancelStopsABlockedBodyAndSwallowsCancellation) {
    std::mutex mutex;
    std::condition_variable_any wake;
    std::atomic<bool> started{false};
    std::atomic<bool> sawStop{false};
    Task task = Task::start("blocked", [&](std::stop_token token) {
        std::unique_lock lock(mutex);
        started = true;
        wake.notify_all();
        // Waits until cancelled: the predicate never becomes true by itself.
        wake.wait(lock, token, [] { return false; });
        sawStop = token.stop_requested();
        throwIfCancelled(token);
        ADD_FAILURE() << "the body went on after cancellation";
    });
    {
        std::unique_lock lock(mutex);
        wake.wait(lock, [&] { return started.load(); });
    }
    EXPECT_FALSE(task.isFinished());
    task.cancel();
    EXPECT_NO_THROW(task.wait()); // CancellationError is not a failure
    EXPECT_TRUE(sawStop);
    EXPECT_TRUE(task.isCancelled());
    EXPECT_TRUE(task.isFinished());
}

TEST(Task, FailuresReachTheWaiterAndDestructionJoins) {
    Task failing =
        Task::start("failing", [](std::stop_token) { throw std::runtime_error("disk gone"); });
    EXPECT_THROW(failing.wait(), std::runtime_error);

    std::atomic<bool> finished{false};
    {
        Task scoped = Task::start("scoped", [&](std::stop_token token) {
            while (!token.stop_requested()) {
                std::this_thread::yield();
            }
            finished = true;
        });
    } // the destructor cancels and waits
    EXPECT_TRUE(finished);

    Task moved = Task::start("first", [](std::stop_token) {});
    moved = Task::start("second", [](std::stop_token) {});
    moved.wait();
    EXPECT_EQ(moved.label(), "second");
    EXPECT_FALSE(Task().isRunning());
}

} // namespace
} // namespace brimvale
