#include "core/rclone/BrimvaleError.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/support/ManualMainQueue.h"
#include "core/support/Task.h"
#include "tests/rclone/RcloneScanTestSupport.h"
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
using testing::describe;
using testing::expectConsistent;
using testing::kSampleTree;
using testing::makeSampleTree;
using testing::RcloneSandbox;
using testing::scanServingMainQueue;
namespace fs = std::filesystem;

TEST(RcloneFolderByFolderScan, ListsARealTreeFolderByFolderIntoSizes) {
    RcloneSandbox sandbox;
    makeSampleTree(sandbox.folder() / "tree");
    sandbox.addRemote("local", "alias", {{"remote", (sandbox.folder() / "tree").string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local files", {.runner = sandbox.realRunner()});

    const auto outcome =
        scanServingMainQueue(adapter, {.path = "", .scanSession = 3, .listOneFolderAtATime = true});
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
    const auto sub = scanServingMainQueue(
        adapter, {.path = "a/b", .scanSession = 1, .listOneFolderAtATime = true});
    ASSERT_FALSE(sub.failure);
    EXPECT_EQ(describe(*sub.root), "b:300(f2:200 f1:100)");
    EXPECT_EQ(sub.root->children()[0]->path(), "/f2");
}

TEST(RcloneFolderByFolderScan, RescanFromTheSeedFollowsChanges) {
    RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    makeSampleTree(tree);
    sandbox.addRemote("local", "alias", {{"remote", tree.string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local", {.runner = sandbox.realRunner()});
    const auto first =
        scanServingMainQueue(adapter, {.path = "", .scanSession = 1, .listOneFolderAtATime = true});
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

    const auto second = scanServingMainQueue(
        adapter,
        {.path = "", .scanSession = 2, .seedRoot = first.root, .listOneFolderAtATime = true});
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
    const auto emptied = scanServingMainQueue(
        memory,
        {.path = "", .scanSession = 9, .seedRoot = second.root, .listOneFolderAtATime = true});
    ASSERT_FALSE(emptied.failure);
    EXPECT_EQ(describe(*emptied.root), "local:0()");
}

TEST(RcloneFolderByFolderScan, AFailingListingFailsTheWholeScan) {
    RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    makeSampleTree(tree);
    sandbox.addRemote("local", "alias", {{"remote", tree.string()}});
    GenericRcloneAdapter adapter("local", "alias", "My files", {.runner = sandbox.realRunner()});
    // Folder c vanishes after the top listing saw it, before its own listing.
    const auto outcome = scanServingMainQueue(
        adapter, {.scanSession = 1, .listOneFolderAtATime = true}, [&](int batch) {
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
    const auto bad =
        scanServingMainQueue(garbled, {.scanSession = 1, .listOneFolderAtATime = true});
    try {
        std::rethrow_exception(bad.failure);
    } catch (const BrimvaleError& error) {
        EXPECT_TRUE(error.description().starts_with(
            "Could not read cloud listing data: Could not parse folder listing for g:: Invalid or "
            "incomplete JSON (often truncated output): "))
            << error.description();
    }
}

TEST(RcloneFolderByFolderScan, TheSameTreeThroughSftpWebdavAndFtpServers) {
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

TEST(RcloneFolderByFolderScan, CancellingMidScanStopsTheListingChild) {
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
        adapter, {.scanSession = 1, .stopToken = stop.get_token(), .listOneFolderAtATime = true},
        [&](int batch) {
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

TEST(RcloneFolderByFolderScan, ListDirectoryAndListingCommands) {
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
    ASSERT_FALSE(
        scanServingMainQueue(drive, {.path = "Photos", .listOneFolderAtATime = true}).failure);
    EXPECT_EQ(testing::readFile(arguments),
              "lsjson|--exclude|Shared with me/**|--drive-skip-shortcuts|--drive-size-as-quota|"
              "gd:Photos|");
    EXPECT_EQ(adapter.lsjsonArguments("local:x"), (std::vector<std::string>{"lsjson", "local:x"}));
}

TEST(RcloneFolderByFolderScan, WithoutAMainQueueEverythingHappensOnTheScanningThread) {
    RcloneSandbox sandbox;
    makeSampleTree(sandbox.folder() / "tree");
    sandbox.addRemote("local", "alias", {{"remote", (sandbox.folder() / "tree").string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local", {.runner = sandbox.realRunner()});
    int partialTrees = 0;
    const auto root = adapter.scan({.path = "a",
                                    .scanSession = 1,
                                    .partialStructure = [&](const FileNodeRef&) { ++partialTrees; },
                                    .listOneFolderAtATime = true});
    EXPECT_EQ(describe(*root), "a:350(b:300(f2:200 f1:100) g:50)");
    EXPECT_EQ(partialTrees, 2);
}

} // namespace
} // namespace brimvale
