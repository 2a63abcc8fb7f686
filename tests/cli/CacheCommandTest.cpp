#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/lzfse/Lzfse.h"
#include "core/support/FileBytes.h"
#include "tests/support/CliRun.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace brimvale::cli {
namespace {

using brimvale::testing::runCli;

// A saved scan of a small drive, written the way the application saves it.
std::string writeCacheFile(const QTemporaryDir& directory) {
    auto video = FileNode::make({.name = "holiday.mov",
                                 .path = "/Videos/holiday.mov",
                                 .size = 3'000'000,
                                 .mimeType = "video/quicktime"});
    auto videos = FileNode::make({.name = "Videos",
                                  .path = "/Videos",
                                  .isDirectory = true,
                                  .size = 3'000'000,
                                  .children = {video}});
    auto notes = FileNode::make({.name = "notes.txt", .path = "/notes.txt", .size = 1'000'000});
    auto root = FileNode::make({.name = "gdrive",
                                .path = "/",
                                .isDirectory = true,
                                .size = 4'000'000,
                                .children = {notes, videos}});
    const auto bytes = encodeCacheSnapshot(snapshotForCache(*root));
    const std::string path = directory.path().toStdString() + "/gdrive.cache";
    writeFileAtomically(path, *bytes);
    return path;
}

TEST(CacheCommand, ShowsASavedTreeAsAListingOrJson) {
    QTemporaryDir directory;
    const std::string path = writeCacheFile(directory);

    const auto listing = runCli({"cache", "show", path, "--depth", "2"});
    EXPECT_EQ(listing.status, 0) << listing.err;
    EXPECT_NE(listing.out.find("4 MB in 4 items"), std::string::npos) << listing.out;
    // Largest first, shares worked out from the sizes (a saved tree stores no fractions).
    const auto videos = listing.out.find("3 MB   75.0%");
    const auto notes = listing.out.find("1 MB   25.0%");
    ASSERT_NE(videos, std::string::npos) << listing.out;
    ASSERT_NE(notes, std::string::npos) << listing.out;
    EXPECT_LT(videos, notes);
    EXPECT_NE(listing.out.find("holiday.mov"), std::string::npos);

    const auto json = runCli({"cache", "show", path, "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const auto tree = nlohmann::json::parse(json.out);
    EXPECT_EQ(tree["name"], "gdrive");
    EXPECT_EQ(tree["children"][0]["path"], "/Videos");
    EXPECT_EQ(tree["children"][0]["children"][0]["mimeType"], "video/quicktime");
    EXPECT_TRUE(tree["children"][1]["providerID"].is_null());

    // The codec command turns the saved file into its property list and back.
    const std::string plist = directory.path().toStdString() + "/gdrive.plist";
    EXPECT_EQ(runCli({"lzfse", "decompress", path, plist}).status, 0);
    const auto plistBytes = readFileBytes(plist).bytes;
    EXPECT_EQ(std::string(plistBytes.begin(), plistBytes.begin() + 8), "bplist00");
    EXPECT_EQ(runCli({"cache", "show", plist}).status, 0) << "an uncompressed record loads too";
}

TEST(CacheCommand, BadFilesAndArguments) {
    QTemporaryDir directory;
    const std::string junk = directory.path().toStdString() + "/junk.cache";
    writeFileAtomically(junk, std::vector<std::uint8_t>{'n', 'o', 'p', 'e'});
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    } cases[] = {
        {{"cache"}, exitUsage, "say list, show or clear"},
        {{"cache", "purge"}, exitUsage, "unknown cache command 'purge'"},
        {{"cache", "show"}, exitUsage, "give the cache file"},
        {{"cache", "show", "a", "b"}, exitUsage, "give one cache file, not several"},
        {{"cache", "show", junk, "--json", "--top", "3"},
         exitUsage,
         "--json writes the whole tree"},
        {{"cache", "show", junk}, exitFailure, "is not a Brimvale cache file"},
        {{"cache", "show", directory.path().toStdString() + "/missing.cache"},
         exitFailure,
         "No such file"},
        {{"cache", "show", directory.path().toStdString()}, exitFailure, "is a folder"},
        {{"lzfse", "squash", "a", "b"}, exitUsage, "unknown mode 'squash'"},
        {{"lzfse", "compress", "a"}, exitUsage, "expected 3 arguments"},
        {{"lzfse", "decompress", junk, junk + ".out"}, exitFailure, "is not a valid LZFSE stream"},
    };
    for (const auto& [arguments, status, message] : cases) {
        const auto outcome = runCli(arguments);
        EXPECT_EQ(outcome.status, status) << message;
        EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
    }
}

} // namespace
} // namespace brimvale::cli
