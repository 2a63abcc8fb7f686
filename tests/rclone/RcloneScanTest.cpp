#include "core/rclone/BrimvaleError.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/support/ManualMainQueue.h"
#include "core/support/Task.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/TreeBuilders.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::childNames;
using testing::RcloneSandbox;
namespace fs = std::filesystem;

// The tree every scan test lists: nested folders, an empty one, odd names.
//   top.txt 10 | a/ { g 50, b/ { f1 100, f2 200 } } | c/ {} | "sp ace & ü"/ { x 7 }
void makeSampleTree(const fs::path& root) {
    testing::writeFileOfSize(root / "top.txt", 10);
    testing::writeFileOfSize(root / "a" / "g", 50);
    testing::writeFileOfSize(root / "a" / "b" / "f1", 100);
    testing::writeFileOfSize(root / "a" / "b" / "f2", 200);
    fs::create_directories(root / "c");
    testing::writeFileOfSize(root / "sp ace & \xC3\xBC" / "x", 7);
}

// name:size(children…) for a whole tree, children in their order.
std::string describe(const FileNode& node) {
    std::string text = std::string(node.name()) + ":" + std::to_string(node.size());
    if (node.isDirectory()) {
        text += "(";
        for (std::size_t i = 0; i < node.children().size(); ++i) {
            text += (i ? " " : "") + describe(*node.children()[i]);
        }
        text += ")";
    }
    return text;
}

// Every node's parent link, path and scan mark are what the tree says.
void expectConsistent(const FileNode& node, std::int64_t session) {
    for (const auto& child : node.children()) {
        EXPECT_EQ(child->parent(), &node) << child->path();
        EXPECT_EQ(child->scanGeneration(), session) << child->path();
        const std::string base = node.path() == "/" ? "" : node.path();
        EXPECT_EQ(child->path(), base + "/" + std::string(child->name()));
        expectConsistent(*child, session);
    }
}

struct ScanOutcome {
    FileNodeRef root;
    std::exception_ptr failure;
    std::vector<ScanProgress> progress;
    int partialTrees = 0;
    bool partialTreesOnMainThread = true;
};

// Runs a scan on its own thread while this (main) thread serves the main queue.
// `beforeBatch(n)` runs on the main thread before the n-th batch of queued jobs: batch 0 is
// the scan's start, batch 1 the merge of the top listing, and so on.
ScanOutcome scanServingMainQueue(RcloneAdapter& adapter, ScanParameters parameters,
                                 std::function<void(int batch)> beforeBatch = {}) {
    ManualMainQueue mainQueue;
    ScanOutcome outcome;
    std::mutex mutex; // guards outcome.progress
    parameters.mainQueue = &mainQueue;
    parameters.progress = [&](const ScanProgress& progress) {
        std::lock_guard lock(mutex);
        outcome.progress.push_back(progress);
    };
    parameters.partialStructure = [&](const FileNodeRef&) {
        ++outcome.partialTrees;
        outcome.partialTreesOnMainThread =
            outcome.partialTreesOnMainThread && mainQueue.isCurrent();
    };
    auto scan = std::async(std::launch::async, [&] { return adapter.scan(parameters); });
    int batch = 0;
    const bool finished = testing::waitUntil([&] {
        if (mainQueue.pendingCount() > 0) {
            if (beforeBatch) {
                beforeBatch(batch++);
            }
            mainQueue.runPending();
        }
        return scan.wait_for(0s) == std::future_status::ready;
    });
    EXPECT_TRUE(finished);
    try {
        outcome.root = scan.get();
    } catch (...) {
        outcome.failure = std::current_exception();
    }
    return outcome;
}

constexpr const char* kSampleTree =
    "tree:367(a:350(b:300(f2:200 f1:100) g:50) top.txt:10 sp ace & \xC3\xBC:7(x:7) c:0())";

TEST(RcloneScan, ListsARealTreeFolderByFolderIntoSizes) {
    RcloneSandbox sandbox;
    makeSampleTree(sandbox.folder() / "tree");
    sandbox.addRemote("local", "alias", {{"remote", (sandbox.folder() / "tree").string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local files", {.runner = sandbox.realRunner()});

    const auto outcome = scanServingMainQueue(adapter, {.path = "", .scanSession = 3});
    ASSERT_FALSE(outcome.failure);
    ASSERT_TRUE(outcome.root);
    // The root is named after the remote when the whole remote is scanned.
    EXPECT_EQ(describe(*outcome.root), std::string(kSampleTree).replace(0, 4, "local"));
    EXPECT_EQ(outcome.root->path(), "/");
    expectConsistent(*outcome.root, 3);
    const FileNode& f1 = *outcome.root->children()[0]->children()[0]->children()[1];
    EXPECT_EQ(f1.path(), "/a/b/f1");
    EXPECT_EQ(f1.mimeType(), "application/octet-stream");
    EXPECT_DOUBLE_EQ(outcome.root->children()[0]->fractionOfParent(), 350.0 / 367.0);

    // One progress report and one partial tree per listing (root, a, a/b, c, "sp ace & ü"),
    // partial trees on the main thread, progress counting up to the whole tree.
    ASSERT_EQ(outcome.progress.size(), 5u);
    EXPECT_EQ(outcome.partialTrees, 5);
    EXPECT_TRUE(outcome.partialTreesOnMainThread);
    EXPECT_EQ(outcome.progress.front().stage, Stage::listing("local:"));
    EXPECT_EQ(outcome.progress[1].stage, Stage::listing("local:a"));
    EXPECT_EQ(outcome.progress[2].stage, Stage::listing("local:a/b"));
    const ScanProgress& last = outcome.progress.back();
    EXPECT_EQ(last.filesScanned, 5);
    EXPECT_EQ(last.foldersScanned, 4);
    EXPECT_EQ(last.bytesAccountedFor, 367);

    // A scan of a sub-folder is rooted there and named after it.
    const auto sub = scanServingMainQueue(adapter, {.path = "a/b", .scanSession = 1});
    ASSERT_FALSE(sub.failure);
    EXPECT_EQ(describe(*sub.root), "b:300(f2:200 f1:100)");
    EXPECT_EQ(sub.root->children()[0]->path(), "/f2");
}

TEST(RcloneScan, RescanFromTheSeedFollowsChanges) {
    RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    makeSampleTree(tree);
    sandbox.addRemote("local", "alias", {{"remote", tree.string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local", {.runner = sandbox.realRunner()});
    const auto first = scanServingMainQueue(adapter, {.path = "", .scanSession = 1});
    ASSERT_FALSE(first.failure);
    std::map<std::string, NodeID> idsByPath;
    std::vector<const FileNode*> pending{first.root.get()};
    while (!pending.empty()) {
        const FileNode* node = pending.back();
        pending.pop_back();
        idsByPath[node->path()] = node->id();
        for (const auto& child : node->children()) {
            pending.push_back(child.get());
        }
    }

    // Folder b disappears, top.txt becomes a folder, g grows.
    fs::remove_all(tree / "a" / "b");
    fs::remove(tree / "top.txt");
    testing::writeFileOfSize(tree / "top.txt" / "inside", 1);
    testing::writeFileOfSize(tree / "a" / "g", 60);

    const auto second =
        scanServingMainQueue(adapter, {.path = "", .scanSession = 2, .seedRoot = first.root});
    ASSERT_FALSE(second.failure);
    EXPECT_EQ(second.root, first.root); // the seed's root is kept
    EXPECT_EQ(describe(*second.root),
              "local:68(a:60(g:60) sp ace & \xC3\xBC:7(x:7) top.txt:1(inside:1) c:0())");
    expectConsistent(*second.root, 2);
    // Every node below the root is new.
    pending = {second.root.get()};
    while (!pending.empty()) {
        const FileNode* node = pending.back();
        pending.pop_back();
        if (node != second.root.get() && idsByPath.contains(node->path())) {
            EXPECT_NE(idsByPath[node->path()], node->id()) << node->path();
        }
        for (const auto& child : node->children()) {
            pending.push_back(child.get());
        }
    }

    // A remote that lists nothing prunes the seed's children and leaves size 0.
    sandbox.addRemote("scratch", "memory");
    GenericRcloneAdapter memory("scratch", "memory", "Scratch", {.runner = sandbox.realRunner()});
    const auto emptied =
        scanServingMainQueue(memory, {.path = "", .scanSession = 9, .seedRoot = second.root});
    ASSERT_FALSE(emptied.failure);
    EXPECT_EQ(describe(*emptied.root), "local:0()");
}

TEST(RcloneScan, AFailingListingFailsTheWholeScan) {
    RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    makeSampleTree(tree);
    sandbox.addRemote("local", "alias", {{"remote", tree.string()}});
    GenericRcloneAdapter adapter("local", "alias", "My files", {.runner = sandbox.realRunner()});
    // Folder c vanishes after the top listing saw it, before its own listing.
    const auto outcome = scanServingMainQueue(adapter, {.scanSession = 1}, [&](int batch) {
        if (batch == 1) {
            fs::remove_all(tree / "c");
        }
    });
    ASSERT_TRUE(outcome.failure);
    try {
        std::rethrow_exception(outcome.failure);
    } catch (const BrimvaleError& error) {
        ASSERT_TRUE(error.is<BrimvaleError::ScanFailed>()) << error.description();
        EXPECT_EQ(error.as<BrimvaleError::ScanFailed>()->accountName, "My files");
        EXPECT_NE(error.description().find("directory not found"), std::string::npos);
    }

    // Output that is not a listing fails with the listing's target in the message.
    GenericRcloneAdapter garbled("g", "x", "G", {.runner = sandbox.fakeRunner("echo '[{\"Pa'")});
    const auto bad = scanServingMainQueue(garbled, {.scanSession = 1});
    try {
        std::rethrow_exception(bad.failure);
    } catch (const BrimvaleError& error) {
        EXPECT_TRUE(error.description().starts_with(
            "Could not read cloud listing data: Could not parse folder listing for g:: Invalid or "
            "incomplete JSON (often truncated output): "))
            << error.description();
    }
}

TEST(RcloneScan, TheSameTreeThroughSftpWebdavAndFtpServers) {
    RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    makeSampleTree(tree);
    const auto sftp = testing::startSftpServer(sandbox, tree);
    const auto webdav = testing::startWebdavServer(sandbox, tree);
    const auto ftp = testing::startFtpServer(sandbox, tree);
    const std::string password = sandbox.obscured("p");
    sandbox.addRemote("sf", "sftp",
                      {{"host", "127.0.0.1"},
                       {"port", std::to_string(sftp.port)},
                       {"user", "u"},
                       {"pass", password}});
    sandbox.addRemote("dav", "webdav",
                      {{"url", "http://127.0.0.1:" + std::to_string(webdav.port) + "/"}});
    sandbox.addRemote("ft", "ftp",
                      {{"host", "127.0.0.1"},
                       {"port", std::to_string(ftp.port)},
                       {"user", "u"},
                       {"pass", password}});
    for (const auto& [remote, type] : {std::pair{"sf", "sftp"}, {"dav", "webdav"}, {"ft", "ftp"}}) {
        GenericRcloneAdapter adapter(remote, type, remote, {.runner = sandbox.realRunner()});
        const auto outcome = scanServingMainQueue(adapter, {.scanSession = 1});
        ASSERT_FALSE(outcome.failure) << type;
        EXPECT_EQ(describe(*outcome.root), std::string(kSampleTree).replace(0, 4, remote)) << type;
        expectConsistent(*outcome.root, 1);
    }
}

TEST(RcloneScan, CancellingMidScanStopsTheListingChild) {
    RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    makeSampleTree(tree);
    const auto sftp = testing::startSftpServer(sandbox, tree);
    sandbox.addRemote("sf", "sftp",
                      {{"host", "127.0.0.1"},
                       {"port", std::to_string(sftp.port)},
                       {"user", "u"},
                       {"pass", sandbox.obscured("p")}});
    GenericRcloneAdapter adapter("sf", "sftp", "Server", {.runner = sandbox.realRunner()});

    std::vector<std::string> log;
    std::mutex logMutex; // guards log
    const auto previous = RcloneProcessLog::setWriter([&](std::string_view line) {
        std::lock_guard lock(logMutex);
        log.emplace_back(line);
    });
    const int threadsBefore = testing::threadCountOfThisProcess();
    std::stop_source stop;
    std::jthread canceller;
    // After the top listing, the server stops answering: the next listing hangs in the SSH
    // handshake until the scan is cancelled.
    const auto outcome = scanServingMainQueue(
        adapter, {.scanSession = 1, .stopToken = stop.get_token()}, [&](int batch) {
            if (batch != 1) {
                return;
            }
            sftp.process->pause();
            canceller = std::jthread([&] {
                const bool hanging = testing::waitUntil([] {
                    for (const auto& child : testing::childProcessesOfThisProcess()) {
                        for (const auto& part : child.commandLine) {
                            if (part == "sf:a") {
                                return true;
                            }
                        }
                    }
                    return false;
                });
                EXPECT_TRUE(hanging);
                stop.request_stop();
            });
        });
    canceller.join();
    RcloneProcessLog::setWriter(previous);
    sftp.process->resume();

    ASSERT_TRUE(outcome.failure);
    EXPECT_THROW(std::rethrow_exception(outcome.failure), CancellationError);
    for (const auto& child : testing::childProcessesOfThisProcess()) {
        EXPECT_EQ(child.pid, sftp.process->pid()) << "a child was left behind";
    }
    EXPECT_TRUE(testing::waitUntil([&] {
        return testing::threadCountOfThisProcess() <= threadsBefore;
    })) << testing::threadCountOfThisProcess()
        << " threads, " << threadsBefore << " before";
    std::lock_guard lock(logMutex);
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log[log.size() - 2], "rclone spawn args=lsjson sf:a");
    EXPECT_TRUE(log.back().starts_with("rclone stopped by cancel exit=")) << log.back();
}

TEST(RcloneScan, ListDirectoryAndListingCommands) {
    RcloneSandbox sandbox;
    makeSampleTree(sandbox.folder() / "tree");
    sandbox.addRemote("local", "alias", {{"remote", (sandbox.folder() / "tree").string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local", {.runner = sandbox.realRunner()});
    auto children = adapter.listDirectory("a", {});
    ASSERT_EQ(children.size(), 2u);
    std::sort(children.begin(), children.end(),
              [](const auto& x, const auto& y) { return x->name() < y->name(); });
    EXPECT_EQ(children[0]->path(), "/a/b");
    EXPECT_TRUE(children[0]->isDirectory());
    EXPECT_EQ(children[0]->size(), 0);
    EXPECT_EQ(children[0]->parent(), nullptr);
    EXPECT_EQ(children[1]->path(), "/a/g");
    EXPECT_EQ(children[1]->size(), 50);
    EXPECT_EQ(adapter.listDirectory("", {}).size(), 4u);

    // The command lines, as rclone receives them.
    const auto arguments = sandbox.folder() / "arguments";
    const std::string recorder =
        "printf '%s|' \"$@\" >> '" + arguments.string() + "'; echo; echo '[]'";
    GoogleDriveAdapter drive("gd", "Drive", {.runner = sandbox.fakeRunner(recorder)});
    ASSERT_FALSE(scanServingMainQueue(drive, {.path = "Photos"}).failure);
    EXPECT_EQ(testing::readFile(arguments),
              "lsjson|--exclude|Shared with me/**|--drive-skip-shortcuts|--drive-size-as-quota|"
              "gd:Photos|");
    EXPECT_EQ(adapter.lsjsonArguments("local:x"), (std::vector<std::string>{"lsjson", "local:x"}));
}

TEST(RcloneScan, WithoutAMainQueueEverythingHappensOnTheScanningThread) {
    RcloneSandbox sandbox;
    makeSampleTree(sandbox.folder() / "tree");
    sandbox.addRemote("local", "alias", {{"remote", (sandbox.folder() / "tree").string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local", {.runner = sandbox.realRunner()});
    int partialTrees = 0;
    const auto root =
        adapter.scan({.path = "a", .scanSession = 1, .partialStructure = [&](const FileNodeRef&) {
                          ++partialTrees;
                      }});
    EXPECT_EQ(describe(*root), "a:350(b:300(f2:200 f1:100) g:50)");
    EXPECT_EQ(partialTrees, 2);
}

} // namespace
} // namespace brimvale
