// A FUSE mount whose daemon is stopped (SIGSTOP): every read, stat and statfs of it waits in the
// kernel and answers no signal short of a fatal one, as a hung NFS share or a dead network
// mount does. Needs root, /dev/fuse and fusermount3 (the Debian package fuse3) to mount one.
#include "core/local/LocalDiskAdapter.h"
#include "core/local/LocalVolumePickerOptions.h"
#include "core/support/Task.h"
#include "tests/local/LocalScanTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <future>
#include <mutex>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::findNode;
using testing::TemporaryTree;

bool isMounted(const std::string& mountPoint) {
    std::ifstream table("/proc/self/mountinfo");
    std::string line;
    while (std::getline(table, line)) {
        if (line.find(" " + mountPoint + " ") != std::string::npos) {
            return true;
        }
    }
    return false;
}

int runQuietly(std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    for (auto& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    pid_t pid = -1;
    if (::posix_spawnp(&pid, pointers[0], nullptr, nullptr, pointers.data(), environ) != 0) {
        return -1;
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// `rclone mount` of a folder of its own at tree/sub/mnt, its daemon stopped once mounted.
class StuckMount : public ::testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0 || ::access("/dev/fuse", R_OK | W_OK) != 0 ||
            ::access("/usr/bin/fusermount3", X_OK) != 0 || ::access("/usr/bin/rclone", X_OK) != 0) {
            GTEST_SKIP() << "mounting a FUSE file system needs root, /dev/fuse, fusermount3 "
                            "(package fuse3) and rclone; this machine lacks one of them";
        }
        source_.file("inside.bin", 4096);
        tree_.file("ok/a.bin", 10'000);
        tree_.file("ok/b.bin", 20'000);
        tree_.file("sub/before.txt", 100);
        tree_.folder("sub/mnt");
        mountPoint_ = tree_.location("sub/mnt");
        std::vector<std::string> arguments{
            "/usr/bin/rclone", "mount", source_.root(),     mountPoint_, "--config", "/dev/null",
            "--attr-timeout",  "0",     "--dir-cache-time", "0"};
        std::vector<char*> pointers;
        for (auto& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        ASSERT_EQ(::posix_spawn(&daemon_, pointers[0], nullptr, nullptr, pointers.data(), environ),
                  0);
        for (int i = 0; i < 200 && !isMounted(mountPoint_); ++i) {
            std::this_thread::sleep_for(50ms);
        }
        ASSERT_TRUE(isMounted(mountPoint_)) << "rclone mount did not mount " << mountPoint_;
        ASSERT_EQ(::kill(daemon_, SIGSTOP), 0);
    }

    void TearDown() override {
        if (daemon_ > 0) {
            ::kill(daemon_, SIGCONT);
            runQuietly({"fusermount3", "-u", "-z", mountPoint_});
            ::kill(daemon_, SIGTERM);
            int status = 0;
            ::waitpid(daemon_, &status, 0);
        }
    }

    TemporaryTree source_;
    TemporaryTree tree_;
    std::string mountPoint_;
    pid_t daemon_ = -1;
};

TEST_F(StuckMount, TheScanGoesOnWithoutTheFolderThatNeverAnswersAndReportsIt) {
    std::mutex lock;
    std::vector<SkippedFolder> skipped;
    LocalDiskAdapter adapter("local", "Local disk",
                             LocalScanOptions{.folderTimeLimit = 300ms,
                                              .onSkippedFolder = [&](const SkippedFolder& folder) {
                                                  std::lock_guard guard(lock);
                                                  skipped.push_back(folder);
                                              }});
    auto scan = std::async(std::launch::async,
                           [&] { return adapter.scan(ScanParameters{.path = tree_.root()}); });
    // Not a speed check: without the fix the scan waits for the mount for good.
    ASSERT_EQ(scan.wait_for(60s), std::future_status::ready) << "the scan hangs on the mount";
    const FileNodeRef root = scan.get();

    const FileNode* ok = findNode(*root, "ok");
    ASSERT_NE(ok, nullptr);
    EXPECT_EQ(ok->children().size(), 2U);
    EXPECT_GE(ok->size(), 30'000);
    EXPECT_GE(root->size(), ok->size());
    std::lock_guard guard(lock);
    ASSERT_EQ(skipped.size(), 1U) << "exactly the folder that does not answer";
    EXPECT_TRUE(skipped[0].location == tree_.location("sub") || skipped[0].location == mountPoint_)
        << skipped[0].location;
    EXPECT_TRUE(skipped[0].timedOut);
    EXPECT_NE(skipped[0].reason.find("no answer"), std::string::npos) << skipped[0].reason;
}

TEST_F(StuckMount, StopReturnsAtOnceWhileAReadHangsAndTheVolumeListSaysNotResponding) {
    std::stop_source stop;
    LocalDiskAdapter adapter("local", "Local disk",
                             LocalScanOptions{.folderTimeLimit = std::chrono::hours(1)});
    auto scan = std::async(std::launch::async, [&] {
        return adapter.scan(ScanParameters{.path = tree_.root(), .stopToken = stop.get_token()});
    });
    // Long enough for a worker to reach the mount and stay in its read.
    ASSERT_EQ(scan.wait_for(1500ms), std::future_status::timeout)
        << "the scan ended although the mount cannot answer";
    stop.request_stop();
    ASSERT_EQ(scan.wait_for(20s), std::future_status::ready) << "Stop waits for the mount";
    EXPECT_THROW(scan.get(), CancellationError);

    auto volumes =
        std::async(std::launch::async, [] { return LocalVolumePickerOptions::linuxChoices(); });
    ASSERT_EQ(volumes.wait_for(20s), std::future_status::ready) << "the volume list hangs";
    bool listed = false;
    for (const auto& choice : volumes.get()) {
        if (choice.scanPath == mountPoint_) {
            listed = true;
            EXPECT_TRUE(choice.notResponding);
            EXPECT_EQ(choice.capacitySummary(), std::optional<std::string>("not responding"));
        } else {
            EXPECT_FALSE(choice.notResponding) << choice.scanPath;
        }
    }
    EXPECT_TRUE(listed) << "a FUSE mount is offered like a network share";
}

} // namespace
} // namespace brimvale
