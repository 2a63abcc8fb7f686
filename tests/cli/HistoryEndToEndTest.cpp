// brimvale-cli history and changes as a person runs them: real folders and an alias remote,
// scanned, changed and scanned again by the real program.
#include "core/model/SizeFormatter.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/cache/ScanCache.h"
#include "tests/coordinator/CliSession.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sys/stat.h>

namespace brimvale::testing {
namespace {

std::int64_t allocated(const TemporaryTree& tree, const std::string& relative) {
    struct stat info {};
    EXPECT_EQ(::stat(tree.location(relative).c_str(), &info), 0) << relative;
    return static_cast<std::int64_t>(info.st_blocks) * 512;
}

std::string change(const std::string& path, std::int64_t before, std::int64_t after,
                   int itemsBefore, int itemsAfter, const std::string& kind) {
    return "{\"path\":\"" + path + "\",\"before\":" + std::to_string(before) +
           ",\"after\":" + std::to_string(after) +
           ",\"itemsBefore\":" + std::to_string(itemsBefore) +
           ",\"itemsAfter\":" + std::to_string(itemsAfter) + ",\"kind\":\"" + kind + "\"}";
}

// What follows "from" and "to" in the JSON output.
std::string afterDates(const std::string& json) {
    return json.substr(json.find(",\"before\":"));
}

using Session = CliSession;

TEST(HistoryEndToEnd, ARescannedFolderShowsExactlyWhatChangedAndNeverAPartialScan) {
    Session session;
    TemporaryTree tree;
    tree.file("media/big.bin", 2'000'000);
    tree.file("media/a-video.mov", 2'000'000);
    tree.file("old.iso", 1'200'000);
    for (const char* name : {"cache/x1", "cache/x2", "cache/x3"}) {
        tree.file(name, 10'000);
    }
    tree.file("docs/readme.txt", 5'000);
    const std::string folder = tree.root();
    EXPECT_NE(session.run({"changes", folder}, 1).standardError.find("no saved scan of"),
              std::string::npos);
    session.run({"scan", folder}, 0);
    EXPECT_NE(session.run({"changes", folder}, 1).standardError.find("only one finished scan"),
              std::string::npos);

    const std::int64_t video = allocated(tree, "media/a-video.mov");
    const std::int64_t bigBefore = allocated(tree, "media/big.bin");
    const std::int64_t oldIso = allocated(tree, "old.iso");
    const std::int64_t cache = 3 * allocated(tree, "cache/x1");
    const std::int64_t readme = allocated(tree, "docs/readme.txt");
    tree.file("media/big.bin", 3'000'000);
    tree.hardLink("media/a-video.mov", "media/z-link.mov"); // counted once, on the first name
    std::filesystem::remove(tree.location("old.iso"));
    std::filesystem::remove_all(tree.location("cache"));
    tree.file("docs/notes.txt", 7'000);
    tree.file("new.iso", 1'500'000);
    session.run({"scan", folder, "--rescan"}, 0);
    const std::int64_t bigAfter = allocated(tree, "media/big.bin");
    const std::int64_t notes = allocated(tree, "docs/notes.txt");
    const std::int64_t newIso = allocated(tree, "new.iso");

    const auto changes = session.run({"changes", folder, "--json"}, 0).standardOutput;
    const std::string expected =
        ",\"before\":" + std::to_string(video + bigBefore + oldIso + cache + readme) +
        ",\"after\":" + std::to_string(video + bigAfter + readme + notes + newIso) +
        ",\"changes\":[" + change("new.iso", 0, newIso, 0, 0, "added") + "," +
        change("old.iso", oldIso, 0, 0, 0, "removed") + "," +
        change("media", video + bigBefore, video + bigAfter, 2, 3, "grew") + "," +
        change("media/big.bin", bigBefore, bigAfter, 0, 0, "grew") + "," +
        change("cache", cache, 0, 3, 0, "removed") + "," +
        change("docs", readme, readme + notes, 1, 2, "grew") + "]}\n";
    EXPECT_EQ(afterDates(changes), expected);
    const auto text = session.run({"changes", folder, "--depth", "1"}, 0).standardOutput;
    EXPECT_NE(text.find("\u2212" + formatBytes(oldIso) + "  old.iso"), std::string::npos) << text;

    // A checkpoint of a scan that did not finish is listed as partial and never compared.
    const std::string key = LocalScanCacheStem::stem("localdisk", folder);
    CacheSnapshot partial{.rootName = folder,
                          .names = {folder},
                          .parents = {-1},
                          .isDirs = {1},
                          .sizes = {1},
                          .modTimes = {0},
                          .pids = {""},
                          .mimes = {""},
                          .partial = true};
    ScanCache((session.home.path() / "cache" / "Brimvale").string())
        .write(*encodeCacheSnapshot(partial, key), key);
    const auto history =
        nlohmann::json::parse(session.run({"history", folder, "--json"}, 0).standardOutput);
    ASSERT_EQ(history["scans"].size(), 3U);
    EXPECT_TRUE(history["scans"][0]["partial"]);
    EXPECT_EQ(history["scans"][1]["size"], video + bigAfter + readme + notes + newIso);
    EXPECT_EQ(afterDates(session.run({"changes", folder, "--json"}, 0).standardOutput), expected);
    const std::vector<std::pair<std::vector<std::string>, std::string>> refused{
        {{"--from", "0"}, "scan 0 is partial"},
        {{"--from", "1"}, "not older than the newest finished scan (1)"},
        {{"--from", "3"}, "--from 3 is out of range: " + folder + " has scans 0 to 2"},
        {{"--since", "2001-01-01"}, "no earlier finished scan of " + folder},
        {{"--since", "2026-02-30"}, "'2026-02-30' is not a date"},
        {{"--top", "0"}, "--top needs a whole number of at least 1"}};
    for (const auto& [options, message] : refused) {
        std::vector<std::string> arguments{"changes", folder};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const auto result = session.cli.run(arguments);
        EXPECT_NE(result.exitStatus, 0);
        EXPECT_NE(result.standardError.find(message), std::string::npos) << result.standardError;
    }

    // Clearing the account's saved scans takes the history with them.
    session.run({"cache", "clear", "localdisk"}, 0);
    EXPECT_NE(session.run({"history", folder}, 1).standardError.find("no saved scan"),
              std::string::npos);
}

TEST(HistoryEndToEnd, ACloudAccountRescannedThroughRcloneComparesItsTwoScans) {
    Session session;
    TemporaryTree tree;
    session.sandbox.addRemote("files", "alias", {{"remote", tree.root()}});
    tree.file("a.bin", 1'500'000);
    tree.file("d.bin", 1'200'000);
    session.run({"scan", "files:"}, 0);
    tree.file("a.bin", 2'500'000);
    std::filesystem::remove(tree.location("d.bin"));
    tree.file("b/c.txt", 100);
    session.run({"scan", "files:", "--rescan"}, 0);
    EXPECT_EQ(afterDates(session.run({"changes", "files:", "--json"}, 0).standardOutput),
              ",\"before\":2700000,\"after\":2500100,\"changes\":[" +
                  change("d.bin", 1'200'000, 0, 0, 0, "removed") + "," +
                  change("a.bin", 1'500'000, 2'500'000, 0, 0, "grew") + "," +
                  change("b", 0, 100, 0, 1, "added") + "]}\n");
    const auto text = session.run({"changes", "files:"}, 0).standardOutput;
    EXPECT_NE(text.find("files:  \u2212200 KB  (2.7 MB \u2192 2.5 MB, 2 \u2192 3 items)"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\u22121.2 MB  d.bin  gone"), std::string::npos) << text;
}

} // namespace
} // namespace brimvale::testing
