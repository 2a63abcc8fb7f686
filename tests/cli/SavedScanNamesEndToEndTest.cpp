// brimvale-cli as a person runs it on folders whose saved-scan names used to break: a path too
// long for the old file names, and accounts whose names begin alike.
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/cache/ScanCache.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace brimvale::testing {
namespace {

TEST(SavedScanNamesEndToEnd, ALongFolderPathIsSavedReopenedAndClearedWithItsAccountOnly) {
    RcloneSandbox sandbox;
    TemporaryFolder home;
    CliProgram cli{sandbox, home.path()};
    TemporaryTree tree;
    // Four levels of 60-character names: the path alone is longer than a file name may be.
    std::string relative;
    for (char letter : {'a', 'b', 'c', 'd'}) {
        relative += (relative.empty() ? "" : "/") + std::string(60, letter);
    }
    tree.file(relative + "/photo.jpg", 70'000);
    const std::string folder = tree.location(relative);
    ASSERT_GT(folder.size(), 255U);

    const auto first = cli.run({"scan", folder});
    ASSERT_EQ(first.exitStatus, 0) << first.standardError;
    EXPECT_EQ(first.standardOutput.find("cached"), std::string::npos) << first.standardOutput;
    const auto again = cli.run({"scan", folder});
    ASSERT_EQ(again.exitStatus, 0) << again.standardError;
    EXPECT_NE(again.standardOutput.find("cached just now"), std::string::npos)
        << again.standardOutput;
    const auto savedFile = cli.cacheDirectory() /
                           ScanCache::fileNameFor(LocalScanCacheStem::stem("localdisk", folder));
    ASSERT_TRUE(std::filesystem::exists(savedFile)) << savedFile;

    // Another account whose name begins with this one's keeps its saved scans.
    const auto cacheFolder = savedFile.parent_path();
    writeFile(cacheFolder / "localdisk_backup.cache", "another account's saved scan");
    writeFile(cacheFolder / "localdisk2.json", "another account's saved scan");
    const auto cleared = cli.run({"cache", "clear", "localdisk"});
    ASSERT_EQ(cleared.exitStatus, 0) << cleared.standardError;
    EXPECT_NE(cleared.standardOutput.find("Removed " + savedFile.filename().string()),
              std::string::npos)
        << cleared.standardOutput;
    EXPECT_FALSE(std::filesystem::exists(savedFile));
    EXPECT_TRUE(std::filesystem::exists(cacheFolder / "localdisk_backup.cache"));
    EXPECT_TRUE(std::filesystem::exists(cacheFolder / "localdisk2.json"));
    const auto rescanned = cli.run({"scan", folder});
    EXPECT_EQ(rescanned.standardOutput.find("cached"), std::string::npos)
        << rescanned.standardOutput;
}

} // namespace
} // namespace brimvale::testing
