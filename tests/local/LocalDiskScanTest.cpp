#include "core/local/LocalDiskAdapter.h"
#include "core/local/PosixDirectoryReader.h"
#include "core/local/VolumeSpace.h"
#include "core/support/LoopMainQueue.h"
#include "core/support/Task.h"
#include "tests/local/LocalScanTestSupport.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace brimvale {
namespace {

using testing::expectConsistentTree;
using testing::findNode;
using testing::TemporaryTree;

FileNodeRef scanFolder(const std::string& path, LocalScanOptions options = {},
                       ScanParameters parameters = {}) {
    LocalDiskAdapter adapter("local", "Local disk", std::move(options));
    parameters.path = path;
    return adapter.scan(parameters);
}

std::int64_t allocatedBytes(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return static_cast<std::int64_t>(status.st_blocks) * 512;
}

// Logical path of a location: the location without its leading "/".
std::string logical(const std::string& location) {
    return location.substr(1);
}

TEST(LocalDiskScan, CountsWhatDuCountsOnAnAwkwardTree) {
    TemporaryTree tree;
    tree.file("docs/report.txt", 10'000);
    tree.file("docs/.hidden", 3'000);
    tree.file("docs/.DS_Store", 6'000);
    tree.file("docs/Thumbs.db", 6'000);
    tree.file("docs/empty");
    tree.sparseFile("vm/disk.img", 64 << 20, 8192);
    // One file with three names in three folders.
    tree.file("media/a/clip.mov", 200'000);
    tree.hardLink("media/a/clip.mov", "media/b/clip-link.mov");
    tree.hardLink("media/a/clip.mov", "archive/clip-again.mov");
    // Loops of symbolic links, and a folder reachable through a link and directly.
    tree.symbolicLink(".", "loops/self");
    tree.symbolicLink("ping", "loops/pong");
    tree.symbolicLink("pong", "loops/ping");
    tree.symbolicLink("../media", "loops/media-again");
    tree.symbolicLink("does-not-exist", "loops/dangling");
    // Names that are not UTF-8, and a newline in a name.
    tree.file("odd/caf\xE9/inside.bin", 5'000);
    tree.file("odd/\xFF\xFE", 7'000);
    tree.file("odd/two\nlines", 9'000);

    const FileNodeRef root = scanFolder(tree.root());
    expectConsistentTree(*root);
    // du counts the two litter files that the scan drops.
    EXPECT_EQ(root->size(), tree.allocatedBytesOfEntriesByDu() -
                                allocatedBytes(tree.location("docs/.DS_Store")) -
                                allocatedBytes(tree.location("docs/Thumbs.db")));
    EXPECT_EQ(root->path(), logical(tree.root()));
    EXPECT_EQ(root->name(), tree.root().substr(tree.root().rfind('/') + 1));
    EXPECT_EQ(root->parent(), nullptr);

    // Hidden files stay; the two desktop litter files do not.
    EXPECT_NE(findNode(*root, "docs/.hidden"), nullptr);
    EXPECT_EQ(findNode(*root, "docs/.DS_Store"), nullptr);
    EXPECT_EQ(findNode(*root, "docs/Thumbs.db"), nullptr);
    ASSERT_NE(findNode(*root, "docs/empty"), nullptr);
    EXPECT_EQ(findNode(*root, "docs/empty")->size(), 0);

    // Allocated, not apparent, size.
    const FileNode* image = findNode(*root, "vm/disk.img");
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->size(), allocatedBytes(tree.location("vm/disk.img")));
    EXPECT_LT(image->size(), 1 << 20);

    // The hard-linked file counts once, at its name with the smallest path.
    const FileNode* first = findNode(*root, "archive/clip-again.mov");
    const FileNode* second = findNode(*root, "media/a/clip.mov");
    const FileNode* third = findNode(*root, "media/b/clip-link.mov");
    ASSERT_TRUE(first && second && third);
    EXPECT_EQ(first->size(), allocatedBytes(tree.location("media/a/clip.mov")));
    EXPECT_EQ(second->size(), 0);
    EXPECT_EQ(third->size(), 0);

    // Links are entries of their own size; nothing below them is listed.
    const FileNode* loops = findNode(*root, "loops");
    ASSERT_NE(loops, nullptr);
    EXPECT_EQ(loops->children().size(), 5u);
    for (const auto& link : loops->children()) {
        EXPECT_FALSE(link->isDirectory()) << link->name();
        EXPECT_TRUE(link->children().empty());
        EXPECT_EQ(link->size(),
                  allocatedBytes(tree.location("loops/" + std::string(link->name()))));
    }
    EXPECT_EQ(findNode(*root, "media")->size(), 0);
    EXPECT_EQ(findNode(*root, "archive")->size(), first->size());

    // Raw names are kept and opened: the folder named with a Latin-1 byte was listed.
    const FileNode* inside = findNode(*root, "odd/caf\xE9/inside.bin");
    ASSERT_NE(inside, nullptr);
    EXPECT_EQ(inside->path(), logical(tree.location("odd/caf\xE9/inside.bin")));
    EXPECT_EQ(inside->size(), allocatedBytes(tree.location("odd/caf\xE9/inside.bin")));
    ASSERT_NE(findNode(*root, "odd/\xFF\xFE"), nullptr);
    ASSERT_NE(findNode(*root, "odd/two\nlines"), nullptr);

    // Dates are the files' modification times.
    struct stat status {};
    ASSERT_EQ(::lstat(tree.location("docs/report.txt").c_str(), &status), 0);
    const auto date = findNode(*root, "docs/report.txt")->modifiedDate();
    ASSERT_TRUE(date);
    EXPECT_EQ(static_cast<std::int64_t>(date->unixSeconds()), status.st_mtim.tv_sec);
    EXPECT_FALSE(findNode(*root, "docs/report.txt")->mimeType());

    // A relative path and a symbolic link to the folder give the same tree.
    tree.symbolicLink(tree.root(),
                      "../" + tree.root().substr(tree.root().rfind('/') + 1) + "-link");
    const FileNodeRef throughLink = scanFolder(tree.root() + "-link");
    EXPECT_EQ(throughLink->path(), root->path());
    EXPECT_EQ(throughLink->size(), root->size());
    ::unlink((tree.root() + "-link").c_str());
}

TEST(LocalDiskScan, HugeFoldersAndVeryDeepChains) {
    TemporaryTree tree;
    tree.manyFiles("wide", 100'000);
    tree.file("wide/zz-large.bin", 70'000);
    tree.deepChain("deep", 5'000, "d", 12'345);

    const FileNodeRef root = scanFolder(tree.root());
    expectConsistentTree(*root);
    EXPECT_EQ(root->size(), tree.allocatedBytesOfEntriesByDu());
    const FileNode* wide = findNode(*root, "wide");
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(wide->children().size(), 100'001u);
    EXPECT_EQ(wide->children().front()->name(), "zz-large.bin");
    // Empty files tie at 0 bytes and keep file-manager order.
    EXPECT_EQ(wide->children()[1]->name(), "f0000000");
    EXPECT_EQ(wide->children().back()->name(), "f0099999");

    const FileNode* node = findNode(*root, "deep");
    int depth = 0;
    while (node != nullptr && !node->children().empty() &&
           node->children().front()->isDirectory()) {
        node = node->children().front().get();
        ++depth;
    }
    EXPECT_EQ(depth, 5'000);
    ASSERT_NE(node, nullptr);
    ASSERT_EQ(node->children().size(), 1u);
    const FileNode& bottom = *node->children().front();
    EXPECT_EQ(bottom.name(), "bottom.bin");
    EXPECT_GT(bottom.size(), 0);
    EXPECT_EQ(bottom.path().size(), logical(tree.location("deep")).size() + 5'000 * 2 + 11);
    EXPECT_EQ(findNode(*root, "deep")->size(), bottom.size());

    // A worker that does not hold the parent open opens such a folder piece by piece.
    std::string location = tree.location("deep");
    for (int level = 0; level < 5'000; ++level) {
        location += "/d";
    }
    const int descriptor = openFolderForReading(-1, {}, location);
    EXPECT_GE(descriptor, 0) << std::strerror(errno);
    struct stat opened {};
    EXPECT_EQ(::fstat(descriptor, &opened), 0);
    EXPECT_TRUE(S_ISDIR(opened.st_mode));
    ::close(descriptor);
    EXPECT_LT(openFolderForReading(-1, {}, location + "/bottom.bin"), 0);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(LocalDiskScan, RescanReusesUnchangedNodesAndDropsWhatIsGone) {
    TemporaryTree tree;
    tree.file("keep/same.txt", 5'000);
    tree.file("keep/grows.txt", 1'000);
    tree.file("gone/old.txt", 8'000);
    tree.file("stay/deeper/file.bin", 20'000);

    const FileNodeRef first = scanFolder(tree.root());
    const FileNode* same = findNode(*first, "keep/same.txt");
    const FileNode* deeper = findNode(*first, "stay/deeper");
    ASSERT_TRUE(same && deeper);

    ::unlink(tree.location("gone/old.txt").c_str());
    ::rmdir(tree.location("gone").c_str());
    tree.file("keep/new.txt", 30'000);
    {
        // Same modification time, more blocks: the node is kept and its size updated.
        struct stat before {};
        ::lstat(tree.location("stay/deeper/file.bin").c_str(), &before);
        tree.file("stay/deeper/file.bin", 90'000);
        const struct timespec times[2] = {before.st_atim, before.st_mtim};
        ::utimensat(AT_FDCWD, tree.location("stay/deeper/file.bin").c_str(), times, 0);
    }

    std::vector<std::int64_t> partialSizes;
    const FileNodeRef second =
        scanFolder(tree.root(), {},
                   ScanParameters{.scanSession = 2,
                                  .seedRoot = first,
                                  .partialStructure = [&](const FileNodeRef& partial) {
                                      partialSizes.push_back(partial->size());
                                  }});
    EXPECT_EQ(second, first); // the seed's root carries the new tree
    expectConsistentTree(*second);
    EXPECT_EQ(second->size(), tree.allocatedBytesOfEntriesByDu());
    EXPECT_EQ(findNode(*second, "keep/same.txt"), same);
    EXPECT_EQ(findNode(*second, "stay/deeper"), deeper);
    EXPECT_EQ(findNode(*second, "gone"), nullptr);
    ASSERT_NE(findNode(*second, "keep/new.txt"), nullptr);
    EXPECT_EQ(findNode(*second, "stay/deeper/file.bin")->size(),
              allocatedBytes(tree.location("stay/deeper/file.bin")));
    EXPECT_FALSE(partialSizes.empty());

    // A seed of another folder is not used.
    const FileNodeRef other =
        scanFolder(tree.location("keep"), {}, ScanParameters{.scanSession = 3, .seedRoot = second});
    EXPECT_NE(other, second);
    EXPECT_EQ(other->path(), logical(tree.location("keep")));
}

TEST(LocalDiskScan, LiveTreesProgressAndTheMainQueue) {
    TemporaryTree tree;
    for (int i = 0; i < 40; ++i) {
        tree.file("f" + std::to_string(i % 7) + "/sub" + std::to_string(i) + "/data.bin",
                  4'096 * (i + 1));
    }
    // Without a main queue everything arrives on the scanning thread; each partial tree is
    // consistent up to the root at the moment it is handed out.
    std::vector<ScanProgress> progress;
    int flushes = 0;
    const auto scanningThread = std::this_thread::get_id();
    const FileNodeRef root =
        scanFolder(tree.root(), {},
                   ScanParameters{.progress =
                                      [&](const ScanProgress& value) {
                                          EXPECT_EQ(std::this_thread::get_id(), scanningThread);
                                          progress.push_back(value);
                                      },
                                  .partialStructure =
                                      [&](const FileNodeRef& partial) {
                                          EXPECT_EQ(std::this_thread::get_id(), scanningThread);
                                          std::int64_t total = 0;
                                          for (const auto& child : partial->children()) {
                                              total += child->size();
                                          }
                                          EXPECT_EQ(partial->size(), total);
                                          ++flushes;
                                      }});
    EXPECT_GE(flushes, 1);
    ASSERT_GE(progress.size(), 2u);
    EXPECT_EQ(progress.back().stage, Stage::complete());
    EXPECT_EQ(progress.back().filesScanned, 40);
    EXPECT_EQ(progress.back().foldersScanned, 1 + 7 + 40);
    EXPECT_EQ(progress.back().bytesAccountedFor, root->size());
    for (std::size_t i = 1; i < progress.size(); ++i) {
        EXPECT_GE(progress[i].itemsScanned(), progress[i - 1].itemsScanned());
    }

    // With a main queue the tree is built and handed out on the main thread.
    LoopMainQueue mainQueue;
    FileNodeRef fromWorker;
    int mainFlushes = 0;
    std::thread scanner([&] {
        fromWorker = scanFolder(tree.root(), {},
                                ScanParameters{.partialStructure =
                                                   [&](const FileNodeRef&) {
                                                       EXPECT_TRUE(mainQueue.isCurrent());
                                                       ++mainFlushes;
                                                   },
                                               .mainQueue = &mainQueue});
        mainQueue.post([&] { mainQueue.quit(); });
    });
    mainQueue.run();
    scanner.join();
    ASSERT_TRUE(fromWorker);
    expectConsistentTree(*fromWorker);
    EXPECT_EQ(fromWorker->size(), root->size());
    EXPECT_GE(mainFlushes, 1);
}

TEST(LocalDiskScan, KernelFileSystemsAreNotEnteredButMemoryOnesAre) {
    for (const char* kernel : {"/proc", "/sys", "/dev"}) {
        struct stat status {};
        if (::stat(kernel, &status) != 0) {
            continue;
        }
        int prompts = 0;
        const FileNodeRef root = scanFolder(kernel, LocalScanOptions{.onPermissionError = [&] {
                                                ++prompts;
                                            }});
        EXPECT_TRUE(root->children().empty()) << kernel;
        EXPECT_EQ(root->size(), 0) << kernel;
        EXPECT_EQ(prompts, 0) << kernel;
    }
    struct stat shm {};
    if (::stat("/dev/shm", &shm) == 0 && S_ISDIR(shm.st_mode)) {
        ::setenv("TMPDIR", "/dev/shm", 1);
        TemporaryTree tree;
        ::unsetenv("TMPDIR");
        tree.file("in-memory.bin", 8'192);
        const FileNodeRef root = scanFolder(tree.root());
        ASSERT_EQ(root->children().size(), 1u);
    }
}

TEST(LocalDiskScan, AdapterBasics) {
    TemporaryTree tree;
    tree.file("a/b.txt", 100);
    tree.file("c.txt", 5'000);
    tree.file("plain.txt", 1);
    LocalDiskAdapter adapter("local", "Local disk");
    EXPECT_EQ(adapter.rcloneType(), "local");
    EXPECT_EQ(adapter.remoteID(), "local");
    EXPECT_TRUE(adapter.isConfigured({}));
    const auto listed = adapter.listDirectory(tree.root(), {});
    ASSERT_EQ(listed.size(), 3u);
    for (const auto& node : listed) {
        EXPECT_EQ(node->isDirectory(), node->name() == "a");
        EXPECT_EQ(node->path(), logical(tree.location(std::string(node->name()))));
    }
    EXPECT_FALSE(adapter.webURL(*listed.front()));

    EXPECT_THROW(adapter.scan(ScanParameters{.path = tree.location("missing")}), std::system_error);
    EXPECT_THROW(adapter.scan(ScanParameters{.path = tree.location("plain.txt")}),
                 std::system_error);
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_THROW(
        adapter.scan(ScanParameters{.path = tree.root(), .stopToken = stopped.get_token()}),
        CancellationError);

    const auto used = adapter.totalOccupiedBytesForScanPath(tree.root(), {});
    const auto space = VolumeSpace::of(tree.root());
    ASSERT_TRUE(used && space);
    // Another process may write between two readings.
    EXPECT_NEAR(static_cast<double>(*used), static_cast<double>(space->usedBytes),
                64.0 * 1024 * 1024);
    const auto df = testing::runProgram({"df", "-B1", "--output=used", tree.root()});
    ASSERT_EQ(df.exitStatus, 0);
    const std::int64_t dfUsed = std::stoll(df.out.substr(df.out.find('\n') + 1));
    EXPECT_NEAR(static_cast<double>(*used), static_cast<double>(dfUsed), 64.0 * 1024 * 1024);
    EXPECT_FALSE(adapter.totalOccupiedBytesForScanPath(tree.location("missing"), {}));
}

} // namespace
} // namespace brimvale
