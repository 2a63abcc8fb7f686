// Deleting items of a local saved scan through the real brimvale-cli: real files, a real trash
// folder, the saved scan read back after each step.
#include "tests/cleanup/CleanupTestSupport.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace brimvale::testing {
namespace {

namespace fs = std::filesystem;

class LocalDeletion : public ::testing::Test {
protected:
    // The trash and the home folder live in the test's own folder.
    ChildProcessResult cli(std::vector<std::string> arguments,
                           std::optional<std::string> homeFolder = std::nullopt) {
        return program.run(std::move(arguments),
                           {{"HOME", homeFolder.value_or(home.path().string())},
                            {"XDG_DATA_HOME", (home / "data").string()}});
    }
    void scan() { ASSERT_EQ(cli({"scan", tree.root()}).exitStatus, 0); }
    FileNodeRef saved() { return savedLocalTree(home.path(), tree.root()); }

    RcloneSandbox sandbox;
    TemporaryFolder home;
    CliProgram program{sandbox, home.path()};
    TemporaryTree tree;
};

TEST_F(LocalDeletion, TrashAndPermanentDeletionKeepTheSavedScanTrue) {
    tree.file("a/f1", 100'000);
    tree.file("a/f2", 200'000);
    tree.file("b/g", 50'000);
    tree.file("b/deep/h", 30'000);
    tree.file("top", 10'000);
    scan();
    const std::int64_t f1Size = childNamed(*childNamed(*saved(), "a"), "f1")->size();

    // A dry run and a run without --yes (no terminal) change nothing.
    auto dry = cli({"rm", tree.root(), "a/f1", "--dry-run"});
    EXPECT_EQ(dry.exitStatus, 0) << dry.standardError;
    EXPECT_NE(dry.standardOutput.find("Would move to the trash: \u201Cf1\u201D"), std::string::npos)
        << dry.standardOutput;
    auto unconfirmed = cli({"rm", tree.root(), "a/f1"});
    EXPECT_EQ(unconfirmed.exitStatus, 1);
    EXPECT_NE(unconfirmed.standardError.find("confirm with --yes"), std::string::npos);
    EXPECT_TRUE(fs::exists(tree.location("a/f1")));

    auto trashed = cli({"rm", tree.root(), "a/f1", "--yes"});
    ASSERT_EQ(trashed.exitStatus, 0) << trashed.standardError;
    EXPECT_FALSE(fs::exists(tree.location("a/f1")));
    EXPECT_TRUE(fs::exists(home / "data/Trash/files/f1"));
    EXPECT_TRUE(fs::exists(home / "data/Trash/info/f1.trashinfo"));
    auto root = saved();
    ASSERT_TRUE(root);
    EXPECT_EQ(childNamed(*root, "a")->children().size(), 1u);
    EXPECT_EQ(root->size(), tree.allocatedBytesOfEntriesByDu());
    EXPECT_EQ(root->subtreeNodeCount(), 8); // root, a, f2, b, g, deep, h, top
    expectRolledUpAndSorted(*root);
    EXPECT_GT(f1Size, 0);

    // By its absolute path, removed for good: the folder that just lost f1 (its new
    // modification time is in the saved scan, so it is still the folder scanned).
    auto removed = cli({"rm", tree.root(), tree.location("a"), "--permanent", "--yes"});
    ASSERT_EQ(removed.exitStatus, 0) << removed.standardError;
    EXPECT_NE(removed.standardOutput.find("Deleted: 1 item"), std::string::npos);
    EXPECT_FALSE(fs::exists(tree.location("a")));
    EXPECT_FALSE(fs::exists(home / "data/Trash/files/a"));
    root = saved();
    EXPECT_EQ(childNamed(*root, "a"), nullptr);
    EXPECT_EQ(root->size(), tree.allocatedBytesOfEntriesByDu());
    EXPECT_EQ(root->subtreeNodeCount(), 6);
    expectRolledUpAndSorted(*root);

    // Bad input: a clear message and a non-zero status each, nothing deleted.
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    } refusals[] = {
        {{"rm", tree.root()}, 2, "give the scanned folder or account and the item"},
        {{"rm", tree.root(), "top", "--trash", "--permanent"}, 2, "not both"},
        {{"rm", tree.root(), "top", "--force"}, 2, "unknown option '--force'"},
        {{"rm", tree.root(), "../top", "--yes"}, 2, "without '..'"},
        {{"rm", tree.root(), "/etc/passwd", "--yes"}, 2, "is not inside the scanned folder"},
        {{"rm", tree.root(), ".", "--yes"}, 1, "is the scanned folder itself"},
        {{"rm", tree.root(), "missing", "--yes"}, 1, "is not in the saved scan"},
        {{"rm", tree.location("b"), "g", "--yes"}, 1, "there is no saved scan of"},
        {{"rm", tree.location("nowhere"), "f2", "--yes"}, 1, "nowhere"},
        {{"rm", "nosuch:", "f2", "--yes"}, 1, "there is no account named 'nosuch'"},
        {{"rm", "nosuch:", "f2", "--trash"}, 2, "for folders of this computer"},
    };
    for (const auto& refusal : refusals) {
        const auto outcome = cli(refusal.arguments);
        EXPECT_EQ(outcome.exitStatus, refusal.status) << refusal.arguments.back();
        EXPECT_NE(outcome.standardError.find(refusal.message), std::string::npos)
            << outcome.standardError;
    }
    EXPECT_TRUE(fs::exists(tree.location("top")));
}

TEST_F(LocalDeletion, LinksReplacedItemsAndProtectedFoldersAreRefusedOrRemovedAsLinks) {
    TemporaryTree outside;
    outside.file("keep", 5'000);
    outside.file("d/x", 5'000);
    tree.symbolicLink(outside.root(), "link");
    tree.file("d/x", 5'000);
    tree.file("replaced", 4'096);
    tree.file("becomes-folder", 4'096);
    tree.folder("home");
    scan();

    // The link goes; what it points to stays.
    auto link = cli({"rm", tree.root(), "link", "--permanent", "--yes"});
    EXPECT_EQ(link.exitStatus, 0) << link.standardError;
    EXPECT_FALSE(fs::is_symlink(tree.location("link")));
    EXPECT_TRUE(fs::exists(outside.location("keep")));
    EXPECT_EQ(childNamed(*saved(), "link"), nullptr);

    // After the scan: d is now a link out of the tree, "replaced" has other contents,
    // "becomes-folder" is a folder.
    fs::rename(tree.location("d"), tree.location("d.old"));
    tree.symbolicLink(outside.location("d"), "d");
    fs::remove(tree.location("replaced"));
    tree.file("replaced", 40'960);
    fs::remove(tree.location("becomes-folder"));
    tree.folder("becomes-folder");
    const struct {
        std::string item;
        const char* message;
        std::optional<std::string> home;
    } refusals[] = {
        {"d/x", "symbolic link that leads out of the scanned folder", std::nullopt},
        {"replaced", "changed since the scan", std::nullopt},
        {"becomes-folder", "it is a folder now", std::nullopt},
        {"home", "is your home folder", tree.location("home")},
    };
    for (const auto& refusal : refusals) {
        const auto outcome =
            cli({"rm", tree.root(), refusal.item, "--permanent", "--yes"}, refusal.home);
        EXPECT_EQ(outcome.exitStatus, 1) << refusal.item;
        EXPECT_NE(outcome.standardError.find(refusal.message), std::string::npos)
            << outcome.standardError;
        EXPECT_NE(childNamed(*saved(), refusal.item.substr(0, refusal.item.find('/'))), nullptr)
            << "kept in the saved scan";
    }
    EXPECT_TRUE(fs::exists(outside.location("d/x")));
    EXPECT_TRUE(fs::exists(tree.location("replaced")));
    EXPECT_TRUE(fs::exists(tree.location("home")));
}

TEST_F(LocalDeletion, MountedFileSystemsAreNeverRemoved) {
    tree.file("vol/inner/kept", 0);
    tree.file("shell/mnt/kept", 0);
    tree.file("shell/loose", 8'192);
    if (runProgram({"mount", "-t", "tmpfs", "tmpfs", tree.location("vol")}).exitStatus != 0) {
        GTEST_SKIP() << "mounting needs root";
    }
    struct Unmount {
        std::vector<std::string> points;
        ~Unmount() {
            for (const auto& point : points) {
                runProgram({"umount", point});
            }
        }
    } unmount{{tree.location("vol")}};
    ASSERT_EQ(runProgram({"mount", "-t", "tmpfs", "tmpfs", tree.location("shell/mnt")}).exitStatus,
              0);
    unmount.points.push_back(tree.location("shell/mnt"));
    std::ofstream(tree.location("vol/file")) << "data";
    std::ofstream(tree.location("shell/mnt/file")) << "data";
    scan();
    auto mountRoot = cli({"rm", tree.root(), "vol", "--permanent", "--yes"});
    EXPECT_EQ(mountRoot.exitStatus, 1);
    EXPECT_NE(mountRoot.standardError.find("is where a file system is mounted"), std::string::npos)
        << mountRoot.standardError;
    // A folder holding a mount point loses the rest; the mount stays, and is reported.
    auto holder = cli({"rm", tree.root(), "shell", "--permanent", "--yes"});
    EXPECT_EQ(holder.exitStatus, 1);
    EXPECT_NE(holder.standardError.find("another file system is mounted there"), std::string::npos)
        << holder.standardError;
    EXPECT_TRUE(fs::exists(tree.location("shell/mnt/file")));
    EXPECT_FALSE(fs::exists(tree.location("shell/loose")));
    const auto root = saved();
    ASSERT_NE(childNamed(*root, "shell"), nullptr) << "listed again after the partial deletion";
    EXPECT_EQ(childNamed(*childNamed(*root, "shell"), "loose"), nullptr);
    expectRolledUpAndSorted(*root);
}

} // namespace
} // namespace brimvale::testing
