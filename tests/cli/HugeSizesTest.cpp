// Sizes from outside can be anything up to 2^63 - 1 bytes each: sums of them stop at the largest
// size instead of stopping the program (or, unchecked, wrapping to a negative size).
#include "cli/TreeListing.h"
#include "core/model/ColumnTailSplit.h"
#include "core/model/FileNode.h"
#include "core/model/SizeFormatter.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sstream>
#include <unistd.h>

namespace brimvale::testing {
namespace {

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kTwoToThe62 = std::int64_t{1} << 62;

FileNodeRef fileOf(const std::string& name, std::int64_t size) {
    return FileNode::make({.name = name, .path = "/" + name, .size = size});
}

TEST(HugeSizes, ListingsAndRollUpsStopAtTheLargestSize) {
    auto root = FileNode::make({.name = "/",
                                .path = "/",
                                .isDirectory = true,
                                .size = kLargest,
                                .children = {fileOf("a", kTwoToThe62), fileOf("b", kTwoToThe62),
                                             fileOf("c", kTwoToThe62)}});
    root->propagateSizes();
    EXPECT_EQ(root->size(), kLargest);
    auto bigger = FileNode::make({.name = "more", .path = "/more", .isDirectory = true});
    bigger->addChild(fileOf("d", kLargest));
    bigger->addChild(fileOf("e", kTwoToThe62));
    EXPECT_EQ(bigger->size(), kLargest);

    // Two items left out of the listing hold 2^63 bytes between them.
    std::ostringstream listing;
    cli::printTreeListing(listing, *root, {.depth = 1, .top = 1});
    EXPECT_NE(listing.str().find("2 more items, " + formatBytes(kLargest)), std::string::npos)
        << listing.str();

    // Three items of 2^62 bytes: the first two already cover 99% of the (saturated) total.
    EXPECT_EQ(ColumnTailSplit::computeSplitIndex(root->children()), ColumnTailSplit::kNoSplit);
}

// Sparse files of 2^62 bytes (a size tmpfs allows) served by rclone over SFTP: three of them
// hold more than the largest size between them.
class HugeSparseFiles : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = "/dev/shm/brimvale-huge-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        root_ = pattern;
        for (const char* name : {"one.img", "two.img", "three.img"}) {
            const int file = ::open((root_ / name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
            ASSERT_GE(file, 0);
            ASSERT_EQ(::ftruncate(file, kTwoToThe62), 0) << "tmpfs takes files of 2^62 bytes";
            ::close(file);
        }
        server_ = startSftpServer(sandbox_, root_);
        sandbox_.addRemote("huge", "sftp",
                           {{"host", "127.0.0.1"},
                            {"port", std::to_string(server_.port)},
                            {"user", "u"},
                            {"pass", sandbox_.obscured("p")}});
    }
    void TearDown() override {
        server_ = {};
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    std::filesystem::path root_;
    RcloneSandbox sandbox_;
    TemporaryFolder home_;
    CliProgram cli_{sandbox_, home_.path()};
    RunningServer server_;
};

TEST_F(HugeSparseFiles, ACloudScanShowsTheLargestSizeInsteadOfAborting) {
    const auto json = cli_.run({"scan", "huge:", "--json"});
    ASSERT_EQ(json.exitStatus, 0) << json.standardError;
    const auto tree = nlohmann::json::parse(json.standardOutput);
    EXPECT_EQ(tree["size"].get<std::int64_t>(), kLargest);
    ASSERT_EQ(tree["children"].size(), 3U);
    for (const auto& child : tree["children"]) {
        EXPECT_EQ(child["size"].get<std::int64_t>(), kTwoToThe62);
    }

    // The saved scan reads back with the same sums, as a listing too.
    const auto shown = cli_.run({"cache", "show", cli_.cacheFile("huge").string(), "--top", "1"});
    ASSERT_EQ(shown.exitStatus, 0) << shown.standardError;
    EXPECT_NE(shown.standardOutput.find(formatBytes(kLargest) + " in 4 items"), std::string::npos)
        << shown.standardOutput;
    EXPECT_NE(shown.standardOutput.find("2 more items, " + formatBytes(kLargest)),
              std::string::npos)
        << shown.standardOutput;
}

} // namespace
} // namespace brimvale::testing
