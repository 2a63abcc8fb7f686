#include "core/persistence/history/ScanChanges.h"

#include "core/support/CorruptDataError.h"

#include <gtest/gtest.h>

#include <map>

namespace brimvale {
namespace {

// A snapshot in pre-order from "path size" pairs; a path ending in "/" is a folder, whose size
// is filled in from what it holds.
CacheSnapshot snapshotOf(const std::vector<std::pair<std::string, std::int64_t>>& items) {
    CacheSnapshot snapshot;
    snapshot.rootName = "root";
    std::map<std::string, std::int32_t> folders{{"", 0}};
    const auto add = [&](const std::string& name, std::int32_t parent, bool dir,
                         std::int64_t size) {
        snapshot.names.push_back(name);
        snapshot.parents.push_back(parent);
        snapshot.isDirs.push_back(dir ? 1 : 0);
        snapshot.sizes.push_back(size);
        snapshot.modTimes.push_back(0);
        snapshot.pids.emplace_back();
        snapshot.mimes.emplace_back();
    };
    add("root", -1, true, 0);
    for (const auto& [path, size] : items) {
        const bool dir = path.ends_with('/');
        const std::string bare = dir ? path.substr(0, path.size() - 1) : path;
        const auto slash = bare.rfind('/');
        const std::string folder = slash == std::string::npos ? "" : bare.substr(0, slash);
        add(bare.substr(slash + 1), folders.at(folder), dir, size);
        if (dir) {
            folders[bare] = static_cast<std::int32_t>(snapshot.names.size() - 1);
        }
    }
    for (std::size_t index = snapshot.names.size(); index-- > 1;) {
        snapshot.sizes[static_cast<std::size_t>(snapshot.parents[index])] += snapshot.sizes[index];
    }
    return snapshot;
}

std::map<std::string, std::string> describe(const ScanComparison& comparison) {
    std::map<std::string, std::string> found;
    for (std::size_t entry = 0; entry < comparison.changes.size(); ++entry) {
        const ScanChange& change = comparison.changes[entry];
        found[comparison.path(entry) + (change.isDir ? "/" : "")] =
            std::string(changeKindName(change.kind)) + " " + std::to_string(change.before) + "→" +
            std::to_string(change.after) + " " + std::to_string(change.itemsBefore) + "→" +
            std::to_string(change.itemsAfter);
    }
    return found;
}

TEST(ScanChanges, PairsByPathAndKindAndListsOnlyWhatChangedWithItsFolders) {
    const auto before = summarizeSnapshot(snapshotOf({{"a/", 0},
                                                      {"a/big", 5'000},
                                                      {"a/small", 10},
                                                      {"same/", 0},
                                                      {"same/x", 4'000},
                                                      {"gone/", 0},
                                                      {"gone/deep/", 0},
                                                      {"gone/deep/f", 2'000},
                                                      {"twin", 1'500},
                                                      {"twin", 1'600},
                                                      {"kind", 3'000}}),
                                          1'000);
    const auto after = summarizeSnapshot(snapshotOf({{"a/", 0},
                                                     {"a/big", 5'000},
                                                     {"a/small", 10},
                                                     {"a/small2", 20},
                                                     {"same/", 0},
                                                     {"same/x", 4'000},
                                                     {"new/", 0},
                                                     {"new/f", 9'000},
                                                     {"twin", 1'500},
                                                     {"twin", 1'700},
                                                     {"kind/", 0}}),
                                         1'000);
    const auto comparison = compareScans(before, after);
    // The small files are only in their folder's size and count; "same" is not listed; twins
    // pair off in order; a file that became a folder of its name is gone, the folder new.
    const std::map<std::string, std::string> expected{{"/", "grew 17110→21230 11→11"},
                                                      {"a/", "grew 5010→5030 2→3"},
                                                      {"new/", "added 0→9000 0→1"},
                                                      {"new/f", "added 0→9000 0→0"},
                                                      {"gone/", "removed 2000→0 2→0"},
                                                      {"gone/deep/", "removed 2000→0 1→0"},
                                                      {"gone/deep/f", "removed 2000→0 0→0"},
                                                      {"twin", "grew 1600→1700 0→0"},
                                                      {"kind/", "added 0→0 0→0"},
                                                      {"kind", "removed 3000→0 0→0"}};
    EXPECT_EQ(comparison.changes.size(), expected.size());
    EXPECT_EQ(describe(comparison), expected);
    std::vector<std::string> order;
    for (const auto entry : comparison.childrenByChange(0)) {
        order.emplace_back(comparison.path(entry));
    }
    EXPECT_EQ(order, (std::vector<std::string>{"new", "kind", "gone", "twin", "a", "kind"}));
    EXPECT_EQ(comparison.depth(comparison.changes.size() - 2), 3); // gone/deep/f

    const auto unchanged = compareScans(after, after);
    ASSERT_EQ(unchanged.changes.size(), 1U);
    EXPECT_EQ(unchanged.changes[0].sizeChange(), 0);
}

TEST(ScanChanges, SummariesSurviveTheirRecordAndDamagedRecordsAreRefused) {
    auto summary = summarizeSnapshot(snapshotOf({{"d/", 0}, {"d/f", 7}, {"d/g", 9}}), 8);
    summary.key = "k";
    summary.date = Date::fromUnixSeconds(1'700'000'000.5);
    const auto bytes = encodeScanSummary(summary);
    const auto back = decodeScanSummary(bytes);
    EXPECT_EQ(back.nameBytes, "rootdg");
    EXPECT_EQ(back.items, (std::vector<std::int32_t>{3, 2, 0}));
    EXPECT_EQ(back.sizes, (std::vector<std::int64_t>{16, 16, 9}));
    EXPECT_EQ(back.date, summary.date);
    const auto header = decodeScanSummaryHeader(bytes);
    EXPECT_EQ(header.key, "k");
    EXPECT_EQ(header.totalItems, 3);

    // A child before its parent, a file as a parent, a negative size: each is refused.
    for (const auto damage : {0, 1, 2}) {
        auto broken = summary;
        if (damage == 0) {
            broken.parents[1] = 2;
        } else if (damage == 1) {
            broken.isDirs[1] = 0;
        } else {
            broken.sizes[2] = -1;
        }
        EXPECT_THROW(decodeScanSummary(encodeScanSummary(broken)), CorruptDataError) << damage;
    }
    EXPECT_THROW(decodeScanSummary(std::vector<std::uint8_t>(bytes.begin(), bytes.end() - 9)),
                 CorruptDataError);
}

} // namespace
} // namespace brimvale
