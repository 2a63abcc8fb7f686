#include "core/persistence/cache/ScanCacheWriter.h"

#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/ScanCache.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <filesystem>

namespace brimvale {
namespace {

// A flat tree of `files` files; its root's size tells which save a file holds.
std::shared_ptr<CacheSnapshot> snapshotOf(int files, std::int64_t rootSize, bool partial) {
    auto snapshot = std::make_shared<CacheSnapshot>();
    snapshot->rootPath = "/";
    snapshot->rootName = "root";
    snapshot->names = {"root"};
    snapshot->parents = {-1};
    snapshot->isDirs = {1};
    snapshot->sizes = {rootSize};
    for (int i = 0; i < files; ++i) {
        snapshot->names.push_back("file-" + std::to_string(i));
        snapshot->parents.push_back(0);
        snapshot->isDirs.push_back(0);
        snapshot->sizes.push_back(0);
    }
    snapshot->modTimes.assign(snapshot->names.size(), 0.0);
    snapshot->pids.assign(snapshot->names.size(), "");
    snapshot->mimes.assign(snapshot->names.size(), "");
    snapshot->partial = partial;
    return snapshot;
}

std::optional<DecodedScan> savedScan(ScanCache& cache, const std::string& stem) {
    const auto data = cache.loadData(stem);
    return data ? decodeCacheRecord(data->bytes) : std::nullopt;
}

TEST(ScanCacheWriter, TheNewestSaveOfAStemWinsAndAClearIsNeverUndone) {
    QTemporaryDir folder;
    auto cache = std::make_shared<ScanCache>(folder.path().toStdString());
    ScanCacheWriter writer(cache);

    // A large checkpoint, then the finished scan at once: the finished one is what stays, in
    // every round (writes that ran on threads of their own could land in either order).
    for (int round = 0; round < 20; ++round) {
        writer.save("acct", snapshotOf(20'000, 1, true), "checkpoint");
        writer.save("acct", snapshotOf(10, 2, true), "checkpoint");
        writer.save("acct", snapshotOf(10, 1000 + round, false), "finished scan");
        writer.waitForStem("acct");
        const auto saved = savedScan(*cache, "acct");
        ASSERT_TRUE(saved);
        EXPECT_EQ(saved->root->size(), 1000 + round);
        EXPECT_FALSE(saved->partial);
    }
    EXPECT_GT(writer.supersededWrites(), 0u);

    // Saves queued before a clear are dropped or finished first; the files are gone after it.
    for (int round = 0; round < 10; ++round) {
        writer.save("gone", snapshotOf(20'000, 1, true), "checkpoint");
        writer.save("gone", snapshotOf(10, 2, true), "partial tree of a stopped scan");
        writer.clear("gone");
        EXPECT_FALSE(cache->loadData("gone"));
        ASSERT_TRUE(writer.waitForAll(std::chrono::seconds(30)));
        EXPECT_FALSE(cache->loadData("gone")) << "a dropped save came back in round " << round;
    }

    // A local account's stems go together; another account that merely begins the same stays.
    for (const std::string stem : {"disk", "disk:/home", "disk:/srv", "diskette", "disk_2"}) {
        writer.save(stem, snapshotOf(5, 7, false), "finished scan");
    }
    writer.clearAccount("disk");
    ASSERT_TRUE(writer.waitForAll(std::chrono::seconds(30)));
    EXPECT_FALSE(cache->loadData("disk"));
    EXPECT_FALSE(cache->loadData("disk:/home"));
    EXPECT_FALSE(cache->loadData("disk:/srv"));
    EXPECT_TRUE(cache->loadData("diskette"));
    EXPECT_TRUE(cache->loadData("disk_2"));
}

TEST(ScanCacheWriter, SavesQueuedAtTheEndAreWrittenBeforeTheWriterGoes) {
    QTemporaryDir folder;
    auto cache = std::make_shared<ScanCache>(folder.path().toStdString());
    {
        ScanCacheWriter writer(cache);
        for (int i = 0; i < 5; ++i) {
            writer.save("stem" + std::to_string(i), snapshotOf(5'000, 100 + i, i % 2 == 0),
                        "finished scan");
        }
    }
    for (int i = 0; i < 5; ++i) {
        const auto saved = savedScan(*cache, "stem" + std::to_string(i));
        ASSERT_TRUE(saved) << i;
        EXPECT_EQ(saved->root->size(), 100 + i);
        EXPECT_EQ(saved->partial, i % 2 == 0);
    }
    // Nothing queued: the wait returns at once.
    ScanCacheWriter idle(cache);
    EXPECT_TRUE(idle.waitForAll(std::chrono::milliseconds(0)));
    idle.waitForStem("never-saved");
}

} // namespace
} // namespace brimvale
