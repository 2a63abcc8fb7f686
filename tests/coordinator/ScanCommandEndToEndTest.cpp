// brimvale-cli scan and cache clear as a person runs them: the real program, the real rclone
// with an alias remote over real files, and signals sent to the running scan.
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/rclone/ChildProcess.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>
#include <thread>

namespace brimvale::testing {
namespace {

class ScanCommandEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        sandbox.addRemote("files", "alias", {{"remote", tree.root()}});
        tree.file("photos/2024/a.jpg", 300'000);
        tree.file("photos/2024/b.jpg", 200'000);
        tree.file("notes.txt", 1'000);
    }

    std::unique_ptr<ChildProcess> start(std::vector<std::string> arguments,
                                        std::vector<EnvironmentChange> extra = {}) const {
        return cli.start(std::move(arguments), std::move(extra));
    }
    ChildProcessResult run(std::vector<std::string> arguments,
                           std::vector<EnvironmentChange> extra = {}) const {
        return cli.run(std::move(arguments), std::move(extra));
    }

    std::filesystem::path cacheFile(const std::string& stem) const { return cli.cacheFile(stem); }

    // A remote whose scan takes seconds: an SFTP server that rclone may ask only ten times a
    // second (the scans run with kSlowListing in their environment).
    void addSlowRemote() {
        for (int i = 0; i < 120; ++i) {
            slowTree.file("d" + std::to_string(i) + "/f.bin", 1000 + i);
        }
        slowServer = startSftpServer(sandbox, slowTree.root());
        sandbox.addRemote("slow", "sftp",
                          {{"host", "127.0.0.1"},
                           {"port", std::to_string(slowServer.port)},
                           {"user", "u"},
                           {"pass", sandbox.obscured("p")}});
    }
    static inline const EnvironmentChange kSlowListing{"RCLONE_TPSLIMIT", "10"};

    RcloneSandbox sandbox;
    TemporaryFolder home;
    CliProgram cli{sandbox, home.path()};
    TemporaryTree tree;
    TemporaryTree slowTree;
    RunningServer slowServer;
};

TEST_F(ScanCommandEndToEnd, ScansThenShowsTheSavedScanUntilAskedToRescan) {
    auto first = run({"scan", "files:", "--depth", "2"});
    ASSERT_EQ(first.exitStatus, 0) << first.standardError;
    EXPECT_NE(first.standardOutput.find("files:  "), std::string::npos) << first.standardOutput;
    EXPECT_NE(first.standardOutput.find("(3 files, 3 folders)"), std::string::npos)
        << first.standardOutput;
    EXPECT_EQ(first.standardOutput.find("cached"), std::string::npos);
    EXPECT_NE(first.standardOutput.find("2024/"), std::string::npos);
    ASSERT_TRUE(std::filesystem::exists(cacheFile("files")));

    // A change on the remote is not seen until --rescan: the saved scan is shown.
    tree.file("photos/new.bin", 50'000);
    auto second = run({"scan", "files:"});
    ASSERT_EQ(second.exitStatus, 0) << second.standardError;
    EXPECT_NE(second.standardOutput.find("cached just now"), std::string::npos)
        << second.standardOutput;
    EXPECT_NE(second.standardOutput.find("(3 files, 3 folders)"), std::string::npos);

    auto third = run({"scan", "files:", "--rescan", "--json"});
    ASSERT_EQ(third.exitStatus, 0) << third.standardError;
    EXPECT_NE(third.standardOutput.find("new.bin"), std::string::npos);

    // A local folder goes through the local account, with a saved scan per folder.
    auto local = run({"scan", tree.root()});
    ASSERT_EQ(local.exitStatus, 0) << local.standardError;
    EXPECT_EQ(local.standardOutput.find("cached"), std::string::npos);
    auto localAgain = run({"scan", tree.root()});
    EXPECT_NE(localAgain.standardOutput.find("cached just now"), std::string::npos)
        << localAgain.standardOutput;

    // Clearing the account's saved scans makes the next run scan again.
    auto cleared = run({"cache", "clear", "files"});
    ASSERT_EQ(cleared.exitStatus, 0) << cleared.standardError;
    EXPECT_NE(cleared.standardOutput.find("Removed files.cache"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(cacheFile("files")));
    auto none = run({"cache", "clear", "files"});
    EXPECT_NE(none.standardOutput.find("No saved scan of files"), std::string::npos);
}

// The size of the item at `path` ("" for the root) in brimvale-cli's --json output.
std::int64_t sizeInJson(const std::string& json, const std::string& path) {
    nlohmann::json node = nlohmann::json::parse(json);
    std::string_view rest = path;
    while (!rest.empty()) {
        const auto slash = rest.find('/');
        const std::string name(rest.substr(0, slash));
        rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
        nlohmann::json next;
        for (const auto& child : node["children"]) {
            if (child["name"] == name) {
                next = child;
            }
        }
        if (next.is_null()) {
            return -1;
        }
        node = next;
    }
    return node["size"].get<std::int64_t>();
}

TEST_F(ScanCommandEndToEnd, RefreshingOneFolderChangesOnlyThatSubtreeAndItsAncestors) {
    ASSERT_EQ(run({"scan", "files:", "--quiet"}).exitStatus, 0);
    tree.file("photos/2024/c.jpg", 50'000);
    std::filesystem::remove(tree.location("notes.txt"));

    auto refreshed = run({"scan", "files:", "--refresh", "photos", "--json"});
    ASSERT_EQ(refreshed.exitStatus, 0) << refreshed.standardError;
    // notes.txt is outside the refreshed folder: the saved scan still has it.
    EXPECT_EQ(sizeInJson(refreshed.standardOutput, ""), 551'000);
    EXPECT_EQ(sizeInJson(refreshed.standardOutput, "photos"), 550'000);
    EXPECT_EQ(sizeInJson(refreshed.standardOutput, "photos/2024/c.jpg"), 50'000);
    EXPECT_EQ(sizeInJson(refreshed.standardOutput, "notes.txt"), 1'000);
    auto reopened = run({"scan", "files:", "--json"});
    ASSERT_EQ(reopened.exitStatus, 0);
    EXPECT_EQ(sizeInJson(reopened.standardOutput, ""), 551'000) << "the refresh was saved";

    // A local folder too (allocated sizes: the change is what counts).
    const std::string local = tree.root();
    auto before = run({"scan", local, "--json"});
    ASSERT_EQ(before.exitStatus, 0);
    tree.file("photos/2024/d.jpg", 7'000);
    tree.file("photos/other.bin", 9'000); // outside the refreshed folder
    auto after = run({"scan", local, "--refresh", "photos/2024", "--json"});
    ASSERT_EQ(after.exitStatus, 0) << after.standardError;
    const auto grown = [&](const std::string& path) {
        return sizeInJson(after.standardOutput, path) - sizeInJson(before.standardOutput, path);
    };
    EXPECT_GE(grown("photos/2024"), 7'000);
    EXPECT_EQ(grown("photos"), grown("photos/2024"));
    EXPECT_EQ(grown(""), grown("photos/2024"));
    EXPECT_EQ(sizeInJson(after.standardOutput, "photos/other.bin"), -1);

    auto missing = run({"scan", "files:", "--refresh", "nowhere/else"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_NE(
        missing.standardError.find("'nowhere/else' is not a folder of the saved scan of files:"),
        std::string::npos)
        << missing.standardError;
    auto both = run({"scan", "files:", "--refresh", "photos", "--rescan"});
    EXPECT_EQ(both.exitStatus, 2);
}

// How often brimvale-cli's scan debug lines say rclone was started with `arguments`.
std::size_t spawnsOf(const std::string& standardError, const std::string& arguments) {
    std::size_t count = 0;
    const std::string line = "rclone spawn args=" + arguments;
    for (auto at = standardError.find(line); at != std::string::npos;
         at = standardError.find(line, at + 1)) {
        ++count;
    }
    return count;
}

TEST_F(ScanCommandEndToEnd, ARescanOfAKnownAccountIsOneRcloneRun) {
    const EnvironmentChange debug{"BRIMVALE_SCAN_DEBUG", "1"};
    auto first = run({"scan", "files:", "--rescan", "--quiet"}, {debug});
    ASSERT_EQ(first.exitStatus, 0) << first.standardError;
    EXPECT_EQ(spawnsOf(first.standardError, "lsjson"), 1u);
    EXPECT_EQ(spawnsOf(first.standardError, "backend features"), 1u);
    EXPECT_EQ(spawnsOf(first.standardError, "config dump"), 1u) << "the account list, once";
    EXPECT_EQ(spawnsOf(first.standardError, ""), 3u) << first.standardError;
    EXPECT_EQ(first.standardError.find("taken over"), std::string::npos)
        << "nothing is known of the account before its first scan";

    auto second = run({"scan", "files:", "--rescan", "--json"}, {debug});
    ASSERT_EQ(second.exitStatus, 0) << second.standardError;
    EXPECT_EQ(spawnsOf(second.standardError, "lsjson -R --checkers 8 -- files:"), 1u);
    EXPECT_EQ(spawnsOf(second.standardError, ""), 1u) << second.standardError;
    EXPECT_NE(second.standardError.find("listing taken over from its early start"),
              std::string::npos);
    EXPECT_EQ(sizeInJson(second.standardOutput, ""), 501'000);

    // One folder at a time, on request: one listing per folder, none of them recursive, and
    // the same tree.
    auto perFolder = run({"scan", "files:", "--rescan", "--per-folder", "--json"}, {debug});
    ASSERT_EQ(perFolder.exitStatus, 0) << perFolder.standardError;
    EXPECT_EQ(spawnsOf(perFolder.standardError, "lsjson"), 3u) << perFolder.standardError;
    EXPECT_EQ(spawnsOf(perFolder.standardError, "lsjson -R"), 0u);
    EXPECT_EQ(sizeInJson(perFolder.standardOutput, "photos/2024"), 500'000);

    // The account is deleted behind Brimvale's back: its rescan says so instead of listing.
    writeFile(sandbox.configPath(), "");
    auto gone = run({"scan", "files:", "--rescan"});
    EXPECT_EQ(gone.exitStatus, 1);
    EXPECT_NE(gone.standardError.find("'files'"), std::string::npos) << gone.standardError;
    EXPECT_EQ(gone.standardOutput, "");
}

TEST_F(ScanCommandEndToEnd, LocalScansRunRcloneOnlyUntilTheLocalAccountIsKnown) {
    const EnvironmentChange debug{"BRIMVALE_SCAN_DEBUG", "1"};
    sandbox.addRemote("mydisk", "local");
    const auto folder = std::filesystem::canonical(tree.root());
    auto first = run({"scan", folder.string(), "--rescan", "--quiet"}, {debug});
    ASSERT_EQ(first.exitStatus, 0) << first.standardError;
    EXPECT_EQ(spawnsOf(first.standardError, ""), 1u) << "the account list, once";
    EXPECT_EQ(spawnsOf(first.standardError, "config dump"), 1u) << first.standardError;

    // The account list chose the configured local remote; later scans and the commands that
    // read saved scans go without rclone, under that account's saved scans.
    auto again = run({"scan", (folder / "photos").string(), "--rescan", "--quiet"}, {debug});
    ASSERT_EQ(again.exitStatus, 0) << again.standardError;
    EXPECT_EQ(spawnsOf(again.standardError, ""), 0u) << again.standardError;
    EXPECT_TRUE(std::filesystem::exists(
        cli.cacheDirectory() /
        ScanCache::fileNameFor(LocalScanCacheStem::stem("mydisk", (folder / "photos").string()))));
    auto history = run({"history", folder.string()}, {debug});
    EXPECT_EQ(history.exitStatus, 0) << history.standardError;
    EXPECT_EQ(spawnsOf(history.standardError, ""), 0u) << history.standardError;
}

TEST_F(ScanCommandEndToEnd, BadTargetsAndUnreachableRemotesSayWhatIsWrong) {
    auto unknown = run({"scan", "nosuch:"});
    EXPECT_EQ(unknown.exitStatus, 1);
    EXPECT_NE(unknown.standardError.find("there is no account named 'nosuch'"), std::string::npos)
        << unknown.standardError;

    auto inside = run({"scan", "files:photos"});
    EXPECT_EQ(inside.exitStatus, 2);
    EXPECT_NE(inside.standardError.find("give the account as files:"), std::string::npos)
        << inside.standardError;

    sandbox.addRemote("gone", "alias", {{"remote", (home / "does-not-exist").string()}});
    auto broken = run({"scan", "gone:"});
    EXPECT_EQ(broken.exitStatus, 1);
    EXPECT_NE(broken.standardError.find("brimvale-cli scan: "), std::string::npos);
    EXPECT_EQ(broken.standardOutput, "");
}

TEST_F(ScanCommandEndToEnd, AKilledScanLeavesACheckpointThatTheNextRunShows) {
    addSlowRemote();
    auto scan =
        start({"scan", "slow:", "--quiet"}, {{"BRIMVALE_CHECKPOINT_SECONDS", "0"}, kSlowListing});
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(cacheFile("slow")); }));
    // Let a few more folders in, then kill without warning.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ::kill(scan->pid(), SIGKILL);
    const auto killed = scan->collectOutputAndWait();
    ASSERT_EQ(killed.terminatingSignal, SIGKILL) << "the scan ended before it was killed";

    auto next = run({"scan", "slow:"});
    ASSERT_EQ(next.exitStatus, 0) << next.standardError;
    EXPECT_NE(next.standardOutput.find("cached just now"), std::string::npos)
        << next.standardOutput;
    EXPECT_EQ(next.standardOutput.find("(120 files"), std::string::npos)
        << "a checkpoint holds a partial tree: " << next.standardOutput;
    EXPECT_NE(next.standardOutput.find("partial: the scan did not finish"), std::string::npos)
        << next.standardOutput;
    auto json = run({"scan", "slow:", "--json"});
    EXPECT_NE(json.standardOutput.find("\"partial\":true"), std::string::npos);

    // A finished scan replaces the checkpoint and is no longer partial.
    auto whole = run({"scan", "slow:", "--rescan", "--quiet"});
    ASSERT_EQ(whole.exitStatus, 0) << whole.standardError;
    auto after = run({"scan", "slow:", "--json"});
    EXPECT_NE(after.standardOutput.find("\"partial\":false"), std::string::npos)
        << after.standardOutput.substr(0, 300);
}

TEST_F(ScanCommandEndToEnd, CtrlCStopsTheScanSavesWhatWasScannedAndExits130) {
    addSlowRemote();
    auto scan = start({"scan", "slow:"}, {{"BRIMVALE_CHECKPOINT_SECONDS", "3600"}, kSlowListing});
    // The first checkpoint comes with the first listing; remove it so that only the stop's
    // own save can leave a file.
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(cacheFile("slow")); }));
    // Some folders' files come in meanwhile.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    std::filesystem::remove(cacheFile("slow"));
    ::kill(scan->pid(), SIGINT);
    const auto stopped = scan->collectOutputAndWait();
    EXPECT_EQ(stopped.exitStatus, 130) << stopped.standardError;
    EXPECT_NE(stopped.standardError.find("stopped; what was scanned so far is saved"),
              std::string::npos)
        << stopped.standardError;
    EXPECT_TRUE(std::filesystem::exists(cacheFile("slow")));

    auto next = run({"scan", "slow:"});
    ASSERT_EQ(next.exitStatus, 0) << next.standardError;
    EXPECT_NE(next.standardOutput.find("cached just now"), std::string::npos);
    // The stopped scan's sizes were added up before it was saved.
    EXPECT_EQ(next.standardOutput.find("slow:  0 bytes"), std::string::npos) << next.standardOutput;
    EXPECT_EQ(next.standardOutput.find("(120 files"), std::string::npos) << next.standardOutput;
    EXPECT_NE(next.standardOutput.find("partial: the scan did not finish"), std::string::npos)
        << next.standardOutput;
}

} // namespace
} // namespace brimvale::testing
