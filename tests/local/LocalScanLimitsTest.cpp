#include "core/local/LocalDiskAdapter.h"
#include "core/local/PosixDirectoryReader.h"
#include "core/local/QuietPrefixes.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"
#include "tests/local/LocalScanTestSupport.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <dirent.h>
#include <filesystem>
#include <future>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace brimvale {
namespace {

using testing::expectConsistentTree;
using testing::findNode;
using testing::runProgram;
using testing::TemporaryTree;

bool endsWith(std::string_view text, std::string_view tail) {
    return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

// Reads like the POSIX reader, except that a folder named "stuck" never finishes on its own:
// it waits until its stop token fires, as a listing on a dead network mount would; and a
// folder named "slow" hands over its entries at a trickle, as a busy old disk would.
class StallingReader final : public DirectoryReader {
public:
    FolderReadOutcome read(const FolderReadRequest& request, DirEntrySink& sink) override {
        if (endsWith(request.location, "/slow")) {
            struct Trickle final : DirEntrySink {
                explicit Trickle(DirEntrySink& wrapped)
                    : inner(wrapped) {}
                void addEntry(const DirEntry& entry) override {
                    std::this_thread::sleep_for(std::chrono::milliseconds(3));
                    inner.addEntry(entry);
                }
                DirEntrySink& inner;
            } trickle(sink);
            return real_.read(request, trickle);
        }
        if (!endsWith(request.location, "/stuck")) {
            return real_.read(request, sink);
        }
        std::mutex lock;
        std::condition_variable_any never;
        std::unique_lock guard(lock);
        never.wait(guard, request.stopToken, [] { return false; });
        return FolderReadOutcome{.status = FolderReadStatus::stopped};
    }

private:
    PosixDirectoryReader real_;
};

// Holds every read of the folder named `gateName` until released, and counts the reads that
// start after `cancelled` is set.
class GateReader final : public DirectoryReader {
public:
    explicit GateReader(std::string gateName)
        : gateName_(std::move(gateName)) {}

    FolderReadOutcome read(const FolderReadRequest& request, DirEntrySink& sink) override {
        if (cancelled.load()) {
            ++readsAfterCancel;
        }
        if (endsWith(request.location, "/" + gateName_)) {
            reached.set_value();
            released.get_future().wait();
        }
        return real_.read(request, sink);
    }

    std::promise<void> reached;
    std::promise<void> released;
    std::atomic<bool> cancelled{false};
    std::atomic<int> readsAfterCancel{0};

private:
    PosixDirectoryReader real_;
    std::string gateName_;
};

int threadsOfThisProcess() {
    int count = 0;
    if (DIR* tasks = ::opendir("/proc/self/task")) {
        while (const dirent* entry = ::readdir(tasks)) {
            count += entry->d_name[0] != '.';
        }
        ::closedir(tasks);
    }
    return count;
}

TEST(LocalScanLimits, AStalledFolderIsLeftEmptyAfterTheTimeLimitASlowOneIsNot) {
    TemporaryTree tree;
    // About 2 s to list in all, but never near the 1 s limit without an entry.
    tree.manyFiles("slow", 700);
    tree.file("fine/a.bin", 10'000);
    tree.file("stuck/never-listed.bin", 50'000);
    tree.file("after/b.bin", 20'000);

    std::vector<std::string> logLines;
    std::mutex logLock;
    const auto previous =
        ScanDiagnostics::setSystemLogWriter([&](std::string_view, std::string_view line) {
            std::lock_guard guard(logLock);
            logLines.emplace_back(line);
        });
    std::vector<SkippedFolder> skipped;
    int prompts = 0;
    LocalDiskAdapter adapter("local", "Local disk",
                             LocalScanOptions{.workerCount = 2,
                                              .folderTimeLimit = std::chrono::milliseconds(1000),
                                              .directoryReader = std::make_shared<StallingReader>(),
                                              .onPermissionError = [&] { ++prompts; },
                                              .onSkippedFolder =
                                                  [&](const SkippedFolder& folder) {
                                                      skipped.push_back(folder);
                                                  }});
    const FileNodeRef root = adapter.scan(ScanParameters{.path = tree.root()});
    ScanDiagnostics::setSystemLogWriter(previous);

    expectConsistentTree(*root);
    const FileNode* stuck = findNode(*root, "stuck");
    ASSERT_NE(stuck, nullptr);
    EXPECT_TRUE(stuck->children().empty());
    EXPECT_EQ(stuck->size(), 0);
    EXPECT_NE(findNode(*root, "fine/a.bin"), nullptr);
    EXPECT_NE(findNode(*root, "after/b.bin"), nullptr);
    EXPECT_EQ(findNode(*root, "slow")->children().size(), 700u);
    ASSERT_EQ(skipped.size(), 1u);
    EXPECT_EQ(skipped[0].location, tree.location("stuck"));
    EXPECT_TRUE(skipped[0].timedOut);
    EXPECT_FALSE(skipped[0].quiet);
    EXPECT_EQ(prompts, 1);
    const std::string expected =
        "timeout " + tree.location("stuck").substr(1) + ": readEntries took >1s, skipping";
    EXPECT_NE(std::find_if(logLines.begin(), logLines.end(),
                           [&](const std::string& line) { return line.starts_with(expected); }),
              logLines.end());
}

TEST(LocalScanLimits, CancellingStopsEveryWorkerAndLeavesNoThread) {
    TemporaryTree tree;
    for (int i = 0; i < 300; ++i) {
        tree.file("many/folder" + std::to_string(i) + "/x.bin", 100);
    }
    tree.file("gate/held.bin", 100);
    auto reader = std::make_shared<GateReader>("gate");
    const int threadsBefore = threadsOfThisProcess();

    std::stop_source stop;
    std::promise<FileNodeRef> result;
    auto outcome = result.get_future();
    std::thread scanning([&] {
        try {
            LocalDiskAdapter adapter("local", "Local disk",
                                     LocalScanOptions{.workerCount = 4, .directoryReader = reader});
            result.set_value(
                adapter.scan(ScanParameters{.path = tree.root(), .stopToken = stop.get_token()}));
        } catch (...) {
            result.set_exception(std::current_exception());
        }
    });
    reader->reached.get_future().wait();
    reader->cancelled = true;
    stop.request_stop();
    reader->released.set_value();
    EXPECT_THROW(outcome.get(), CancellationError);
    scanning.join();

    // Reads already past their check may finish; nothing new starts.
    EXPECT_LE(reader->readsAfterCancel.load(), 4);
    EXPECT_EQ(threadsOfThisProcess(), threadsBefore);
}

TEST(LocalScanLimits, QuietPrefixesMatchWholeComponents) {
    const auto defaults = QuietPrefixes::defaults();
    EXPECT_TRUE(QuietPrefixes::contains(defaults, "private/var/root"));
    EXPECT_TRUE(QuietPrefixes::contains(defaults, "private/var/db/something/deeper"));
    EXPECT_TRUE(QuietPrefixes::contains(defaults, "root"));
    EXPECT_TRUE(QuietPrefixes::contains(defaults, "root/.ssh"));
    EXPECT_TRUE(QuietPrefixes::contains(defaults, "tmp/systemd-private-3f2a-chronyd.service-x"));
    EXPECT_FALSE(QuietPrefixes::contains(defaults, "rootfs"));
    EXPECT_FALSE(QuietPrefixes::contains(defaults, "home/alice/root"));
    EXPECT_FALSE(QuietPrefixes::contains(defaults, "tmp/systemd"));
    EXPECT_FALSE(QuietPrefixes::contains(defaults, ""));
    EXPECT_FALSE(QuietPrefixes::contains({}, "root"));
}

// Runs `arguments` as the unprivileged user nobody when this process is root (CI), else as is.
// The program is copied into `tree` first: the build folder may lie where nobody cannot go.
testing::ProgramResult runAsOrdinaryUser(TemporaryTree& tree, std::vector<std::string> arguments) {
    if (::geteuid() == 0) {
        const std::string program = arguments.front();
        const std::string copy =
            tree.location("programs/" + program.substr(program.rfind('/') + 1));
        tree.folder("programs");
        std::filesystem::copy_file(program, copy,
                                   std::filesystem::copy_options::overwrite_existing);
        tree.setMode(copy.substr(tree.root().size() + 1), 0755);
        arguments.front() = copy;
        // A cache folder the user can write: a scan whose result cannot be saved fails.
        tree.folder("cache", 0777);
        tree.setMode("cache", 0777);
        arguments.insert(arguments.begin(),
                         {"setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", "env",
                          "XDG_CACHE_HOME=" + tree.location("cache")});
    }
    return runProgram(arguments);
}

TEST(LocalScanLimits, UnreadableFoldersOfAnOrdinaryUser) {
    TemporaryTree tree;
    tree.file("open/visible.bin", 40'000);
    tree.file("locked/secret.bin", 30'000);
    tree.setMode("locked", 0700);
    tree.file("listable-only/inside.bin", 2'000);
    tree.setMode("listable-only", 0744); // names readable, entries not
    tree.file("system/area/hidden.bin", 1'000);
    tree.setMode("system/area", 0700);

    const std::string quiet = tree.location("system/area").substr(1);
    const auto probe =
        runAsOrdinaryUser(tree, {BRIMVALE_LOCAL_SCAN_PROBE, tree.root(), "--quiet", quiet});
    ASSERT_EQ(probe.exitStatus, 0) << probe.err;
    EXPECT_NE(probe.out.find("permission-prompts 2\n"), std::string::npos) << probe.out;
    EXPECT_NE(probe.out.find("skipped 0 " + tree.location("locked") + "\tPermission denied\n"),
              std::string::npos)
        << probe.out;
    EXPECT_NE(
        probe.out.find("skipped 0 " + tree.location("listable-only") + "\tPermission denied\n"),
        std::string::npos)
        << probe.out;
    EXPECT_NE(probe.out.find("skipped 1 " + tree.location("system/area") + "\tPermission denied\n"),
              std::string::npos)
        << probe.out;
    EXPECT_NE(probe.out.find("node " + tree.location("open/visible.bin").substr(1) + "\t"),
              std::string::npos);
    EXPECT_EQ(probe.out.find("secret.bin"), std::string::npos);
    EXPECT_EQ(probe.out.find("inside.bin"), std::string::npos);

    // The command line says the same to a person, and still succeeds.
    const auto cli = runAsOrdinaryUser(tree, {BRIMVALE_CLI_PROGRAM, "scan", tree.root()});
    EXPECT_EQ(cli.exitStatus, 0) << cli.err;
    EXPECT_NE(cli.err.find("3 folders could not be read"), std::string::npos) << cli.err;
    EXPECT_NE(cli.err.find("  " + tree.location("locked") + ": Permission denied\n"),
              std::string::npos)
        << cli.err;
    EXPECT_NE(cli.out.find("open/"), std::string::npos) << cli.out;
}

} // namespace
} // namespace brimvale
