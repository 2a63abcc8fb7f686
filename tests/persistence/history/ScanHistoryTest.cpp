#include "core/persistence/history/ScanHistory.h"

#include "core/persistence/cache/SavedScanNames.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/persistence/cache/ScanCacheWriter.h"
#include "core/persistence/history/SavedScanHistory.h"
#include "core/support/InMemorySettingsStore.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace brimvale {
namespace {

CacheSnapshot snapshotOf(std::int64_t rootSize, bool partial = false) {
    CacheSnapshot snapshot;
    snapshot.rootName = "root";
    snapshot.names = {"root"};
    snapshot.parents = {-1};
    snapshot.isDirs = {1};
    snapshot.sizes = {rootSize};
    snapshot.modTimes = {0};
    snapshot.pids = {""};
    snapshot.mimes = {""};
    snapshot.partial = partial;
    return snapshot;
}

constexpr double kDay = 86'400;
const Date kNow = Date::fromUnixSeconds(1'800'000'000);

Date daysAgo(double days) {
    return Date::fromUnixSeconds(kNow.unixSeconds() - days * kDay);
}

std::vector<std::int64_t> sizesOf(const ScanHistory& history, std::string_view key) {
    std::vector<std::int64_t> sizes;
    for (const auto& entry : history.entries(key)) {
        sizes.push_back(entry.totalSize);
    }
    return sizes;
}

TEST(ScanHistory, KeepsTheNewestAndAsManyEarlierScansAsTheLimitsAllow) {
    QTemporaryDir folder;
    ScanHistory history(folder.path().toStdString());
    // The newest scan stays however old it is; the next one pushes it out by age.
    ASSERT_FALSE(history.record("k", snapshotOf(1), daysAgo(200), {}, kNow));
    EXPECT_EQ(sizesOf(history, "k"), std::vector<std::int64_t>{1});
    const HistoryLimits twoEarlier{.earlierScans = 2, .maxAgeDays = 90};
    for (int day = 4; day >= 0; --day) {
        ASSERT_FALSE(history.record("k", snapshotOf(10 - day), daysAgo(day), twoEarlier, kNow));
    }
    EXPECT_EQ(sizesOf(history, "k"), (std::vector<std::int64_t>{10, 9, 8}));
    // Partial scans never enter it; no earlier scans at all is a valid limit.
    EXPECT_TRUE(history.record("k", snapshotOf(99, true), kNow, {}, kNow));
    ASSERT_FALSE(history.record("k", snapshotOf(11), kNow, {.earlierScans = 0}, kNow));
    EXPECT_EQ(sizesOf(history, "k"), std::vector<std::int64_t>{11});

    InMemorySettingsStore settings;
    settings.setString("Brimvale.scanHistoryLength.v1.gd", "3");
    settings.setString("Brimvale.scanHistoryDays.v1.gd", "-4");
    const auto limits = HistoryLimits::forAccount(settings, "gd");
    EXPECT_EQ(limits.earlierScans, 3);
    EXPECT_EQ(limits.maxAgeDays, HistoryLimits::kDefaultMaxAgeDays);
}

TEST(ScanHistory, OnlyFinishedSavesEnterItAndClearingAnAccountTakesExactlyItsHistory) {
    QTemporaryDir folder;
    const std::string directory = folder.path().toStdString();
    auto cache = std::make_shared<ScanCache>(directory);
    const std::string folderKey =
        SavedScanNames::folderKey("localdisk", "/srv/" + std::string(200, 'm'));
    {
        ScanCacheWriter writer(cache);
        for (const std::string& key : {std::string("localdisk"), folderKey,
                                       std::string("localdisk_backup"), std::string("gd")}) {
            writer.save(key, std::make_shared<CacheSnapshot>(snapshotOf(5)), "finished",
                        HistoryLimits{});
            writer.waitForStem(key);
        }
        writer.save("gd", std::make_shared<CacheSnapshot>(snapshotOf(6, true)), "checkpoint");
        writer.save("gd", std::make_shared<CacheSnapshot>(snapshotOf(7)), "refresh");
    }
    const ScanHistory history(directory);
    EXPECT_EQ(sizesOf(history, "gd"), std::vector<std::int64_t>{5});
    // The saved scan, another tree than the history's newest, is listed before it.
    const auto listed = listSavedScans(*cache, "gd");
    ASSERT_EQ(listed.size(), 2U);
    EXPECT_EQ(listed[0].totalSize, 7);
    EXPECT_FALSE(listed[0].partial);
    EXPECT_EQ(listed[1].totalSize, 5);
    EXPECT_EQ(sizesOf(history, folderKey), std::vector<std::int64_t>{5});

    const auto removed = cache->clearAccount("localdisk");
    EXPECT_EQ(removed.size(), 4U); // two saved scans and their history
    EXPECT_TRUE(history.entries("localdisk").empty());
    EXPECT_TRUE(history.entries(folderKey).empty());
    EXPECT_EQ(sizesOf(history, "localdisk_backup"), std::vector<std::int64_t>{5});
    EXPECT_EQ(sizesOf(history, "gd"), std::vector<std::int64_t>{5});
}

} // namespace
} // namespace brimvale
