// What rclone does with names that are not UTF-8, on a local folder through an alias remote:
// it lists them with each such byte shown as U+FFFD (two files can then share a name), and it
// cannot list a folder by that name. Neither may fail the scan.
#include "core/rclone/GenericRcloneAdapter.h"
#include "tests/rclone/RcloneScanTestSupport.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <memory>

namespace brimvale {
namespace {

namespace fs = std::filesystem;

TEST(RcloneNonUtf8Names, BothListingModesScanAFolderHoldingThem) {
    testing::RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    testing::writeFileOfSize(tree / "caf\xE9.txt", 4);
    testing::writeFileOfSize(tree / "caf\xE8.txt", 8);
    testing::writeFileOfSize(tree / "d\xFF" / "inner", 16);
    testing::writeFileOfSize(tree / "plain" / "x", 32);
    sandbox.addRemote("local", "alias", {{"remote", tree.string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local", {.runner = sandbox.realRunner()});

    for (const bool oneFolderAtATime : {false, true}) {
        SCOPED_TRACE(oneFolderAtATime ? "one folder at a time" : "one recursive listing");
        auto skipped = std::make_shared<std::vector<SkippedFolder>>();
        const auto outcome = testing::scanServingMainQueue(
            adapter, {.scanSession = 1,
                      .listOneFolderAtATime = oneFolderAtATime,
                      .onSkippedFolder = [skipped](const SkippedFolder& folder) {
                          skipped->push_back(folder);
                      }});
        ASSERT_FALSE(outcome.failure);
        testing::expectConsistent(*outcome.root, 1);
        if (!oneFolderAtATime) {
            EXPECT_EQ(testing::describe(*outcome.root),
                      "local:60(plain:32(x:32) d\uFFFD:16(inner:16) caf\uFFFD.txt:8 "
                      "caf\uFFFD.txt:4)");
            EXPECT_TRUE(skipped->empty());
            continue;
        }
        // Folder by folder, children are matched by name, so the later of the two look-alike
        // files takes the earlier's place; the folder rclone cannot list is reported.
        EXPECT_EQ(testing::describe(*outcome.root),
                  "local:36(plain:32(x:32) caf\uFFFD.txt:4 d\uFFFD:0())");
        ASSERT_EQ(skipped->size(), 1u);
        EXPECT_EQ((*skipped)[0].location, "/d\uFFFD");
        EXPECT_NE((*skipped)[0].reason.find("not valid UTF-8"), std::string::npos);
    }
}

} // namespace
} // namespace brimvale
