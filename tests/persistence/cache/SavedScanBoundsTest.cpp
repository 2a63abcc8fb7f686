// Reading a saved scan costs in proportion to its file: crafted files made with the project's
// own writer (a deep chain of long names, an inflated count) and things that are not files.
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/lzfse/Lzfse.h"
#include "core/support/CorruptDataError.h"
#include "tests/support/CliRun.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sys/stat.h>

namespace brimvale {
namespace {

// A chain of `depth` folders, each named `name`, with one file at the bottom.
CacheSnapshot chainSnapshot(int depth, const std::string& name) {
    CacheSnapshot snapshot{.rootPath = "/", .rootName = "/"};
    const auto add = [&](const std::string& nodeName, std::int32_t parent, bool folder) {
        snapshot.names.push_back(nodeName);
        snapshot.parents.push_back(parent);
        snapshot.isDirs.push_back(folder ? 1 : 0);
        snapshot.sizes.push_back(1);
        snapshot.modTimes.push_back(0);
        snapshot.pids.emplace_back();
        snapshot.mimes.emplace_back();
    };
    add("/", -1, true);
    for (int level = 0; level < depth; ++level) {
        add(name, level, true);
    }
    add("bottom.bin", depth, false);
    return snapshot;
}

// `count` files named alike in one folder.
CacheSnapshot floodSnapshot(int count) {
    CacheSnapshot snapshot{.rootPath = "/", .rootName = "/"};
    snapshot.names.assign(static_cast<std::size_t>(count) + 1, "f");
    snapshot.parents.assign(static_cast<std::size_t>(count) + 1, 0);
    snapshot.parents[0] = -1;
    snapshot.isDirs.assign(static_cast<std::size_t>(count) + 1, 0);
    snapshot.isDirs[0] = 1;
    snapshot.sizes.assign(static_cast<std::size_t>(count) + 1, 0);
    snapshot.modTimes.assign(static_cast<std::size_t>(count) + 1, 0.0);
    snapshot.pids.assign(static_cast<std::size_t>(count) + 1, "");
    snapshot.mimes.assign(static_cast<std::size_t>(count) + 1, "");
    return snapshot;
}

TEST(SavedScanBounds, CraftedRecordsAreRefusedAndRealOnesStillRead) {
    // 2,000 folders of 250-byte names: a small file whose folder paths would add up to 500 MB.
    const auto deepChain = *encodeCacheSnapshot(chainSnapshot(2'000, std::string(250, 'n')));
    EXPECT_LT(deepChain.size(), 64U * 1024U);
    EXPECT_FALSE(decodeCacheRecord(deepChain));

    // A real chain as deep as a local scan goes: 5,000 levels of short names.
    const auto realChain = *encodeCacheSnapshot(chainSnapshot(5'000, "d"));
    const auto decoded = decodeCacheRecord(realChain);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->root->subtreeNodeCount(), 5'002);

    // A folder of 100,000 files the writer saved takes more than a byte per node: it reads.
    const auto folder = *encodeCacheSnapshot(floodSnapshot(100'000));
    EXPECT_GT(folder.size(), 100'001U);
    ASSERT_TRUE(decodeCacheRecord(folder));

    // The same record with the count of its name column raised: the columns disagree, and the
    // record is refused without a crash.
    auto plist = lzfseDecompress(*encodeCacheSnapshot(floodSnapshot(20)), 1 << 20);
    const std::uint8_t header[] = {0xAF, 0x10, 21};
    const auto at = std::search(plist.begin(), plist.end(), std::begin(header), std::end(header));
    ASSERT_NE(at, plist.end());
    at[2] = 0xFF;
    EXPECT_FALSE(decodeCacheRecord(plist));
    // More names than a file of that size may hold are refused before any column is decoded.
    EXPECT_THROW(decodeCacheSnapshot(plist, 20), CorruptDataError);

    // The same limits by hand: the node count and the folder path bytes.
    const auto chain = chainSnapshot(10, "abc");
    EXPECT_TRUE(rebuildTree(chain, {}, {.maxNodes = 12, .maxFolderPathBytes = 1'000}));
    EXPECT_FALSE(rebuildTree(chain, {}, {.maxNodes = 11, .maxFolderPathBytes = 1'000}));
    EXPECT_FALSE(rebuildTree(chain, {}, {.maxNodes = 12, .maxFolderPathBytes = 100}));
}

TEST(SavedScanBounds, ShowingWhatIsNotASavedScanFileEndsAtOnce) {
    QTemporaryDir temporary;
    const std::string fifo = temporary.path().toStdString() + "/saved.cache";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {std::string("/dev/zero"), fifo}) {
        const auto shown = testing::runCli({"cache", "show", path});
        EXPECT_EQ(shown.status, 1) << path;
        EXPECT_NE(shown.err.find(path + " is not a regular file"), std::string::npos) << shown.err;
    }

    const std::string deep = temporary.path().toStdString() + "/deep.cache";
    const auto bytes = *encodeCacheSnapshot(chainSnapshot(2'000, std::string(250, 'n')));
    std::ofstream(deep, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    const auto shown = testing::runCli({"cache", "show", deep});
    EXPECT_EQ(shown.status, 1);
    EXPECT_NE(shown.err.find("this saved scan is damaged"), std::string::npos) << shown.err;
}

} // namespace
} // namespace brimvale
