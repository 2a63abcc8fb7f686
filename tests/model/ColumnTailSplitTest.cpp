#include "core/model/ColumnTailSplit.h"

#include "tests/support/TreeBuilders.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace brimvale {
namespace {

using ColumnTailSplit::computeSplitIndex;
using ColumnTailSplit::kNoSplit;
using testing::file;
using testing::folder;

std::vector<FileNodeRef> files(int count, std::int64_t size, const std::string& stem = "f") {
    std::vector<FileNodeRef> items;
    for (int index = 0; index < count; ++index) {
        items.push_back(file(stem + std::to_string(index), size));
    }
    return items;
}

void append(std::vector<FileNodeRef>& items, std::vector<FileNodeRef> more) {
    items.insert(items.end(), more.begin(), more.end());
}

TEST(ColumnTailSplit, CoverageCutsTheTailOfLargeItems) {
    // 40 items of 3 MB hold 99% of the bytes, 110 items of exactly 10,000 bytes the rest (none
    // is under 10,000 bytes, so only the coverage cuts).
    std::vector<FileNodeRef> items = files(40, 3'000'000, "big");
    append(items, files(110, 10'000, "tail"));
    EXPECT_EQ(computeSplitIndex(items), 40u); // 110 hidden

    // The small-item cut comes first when it is earlier than the coverage.
    std::vector<FileNodeRef> early = files(5, 1'000'000, "big");
    append(early, files(30, 9'999, "small"));
    EXPECT_EQ(computeSplitIndex(early), 5u);
}

TEST(ColumnTailSplit, RunsShorterThanTwentyStayUnlessEmptyFoldersStart) {
    // 30 files of 0 bytes: nothing to cover (cover index = count), every item is small: all 30
    // fold, since 30 is a run of 20 or more.
    EXPECT_EQ(computeSplitIndex(files(30, 0)), 0u);
    // 19 of them are not folded.
    EXPECT_EQ(computeSplitIndex(files(19, 0)), kNoSplit);
    // Exactly 20 hidden items fold; 19 hidden after a cut do not.
    std::vector<FileNodeRef> twenty = files(3, 1'000'000, "big");
    append(twenty, files(20, 10, "small"));
    EXPECT_EQ(computeSplitIndex(twenty), 3u);
    std::vector<FileNodeRef> nineteen = files(3, 1'000'000, "big");
    append(nineteen, files(19, 10, "small"));
    EXPECT_EQ(computeSplitIndex(nineteen), kNoSplit);

    // 25 items whose last 3 are empty folders: the 3 fold although fewer than 20.
    std::vector<FileNodeRef> withEmpty = files(22, 1'000'000);
    for (int index = 0; index < 3; ++index) {
        withEmpty.push_back(folder("empty" + std::to_string(index), {}));
    }
    EXPECT_EQ(computeSplitIndex(withEmpty), 22u);

    // Empty files are not empty folders: three 0-byte files after 22 large ones stay.
    std::vector<FileNodeRef> emptyFiles = files(22, 1'000'000);
    append(emptyFiles, files(3, 0, "zero"));
    EXPECT_EQ(computeSplitIndex(emptyFiles), kNoSplit);
}

TEST(ColumnTailSplit, LongColumnsShowAtMostOneHundredItems) {
    // 500 equal items of 1 MB: coverage needs 495 items, so the cut (495) is capped at 100.
    EXPECT_EQ(computeSplitIndex(files(500, 1'000'000)), 100u);
    // ... unless an empty folder comes earlier: 150 large items, then empty folders.
    std::vector<FileNodeRef> items = files(150, 1'000'000);
    for (int index = 0; index < 5; ++index) {
        items.push_back(folder("empty" + std::to_string(index), {}));
    }
    // The cut is 149 (coverage), capped: the empty folders start past 99, so 100 are shown.
    EXPECT_EQ(computeSplitIndex(items), 100u);
    // An empty folder at index 60 of a long column splits there.
    std::vector<FileNodeRef> early = files(60, 1'000'000);
    early.push_back(folder("empty", {}));
    append(early, files(200, 1'000'000, "late"));
    EXPECT_EQ(computeSplitIndex(early), 60u);
}

TEST(ColumnTailSplit, EdgeColumns) {
    EXPECT_EQ(computeSplitIndex(std::vector<FileNodeRef>{}), kNoSplit);
    EXPECT_EQ(computeSplitIndex(files(1, 5)), kNoSplit);
    // A single empty folder is folded: the column shows only the tail row.
    EXPECT_EQ(computeSplitIndex(std::vector<FileNodeRef>{folder("empty", {})}), 0u);
    // Negative sizes (never made by a scanner, possible in a damaged cache) do not break it.
    std::vector<FileNodeRef> negative = files(25, -1);
    EXPECT_EQ(computeSplitIndex(negative), 0u);
}

TEST(ColumnTailSplit, SmallerItemsLabel) {
    EXPECT_EQ(ColumnTailSplit::smallerItemsLabel(1), "1 smaller item");
    EXPECT_EQ(ColumnTailSplit::smallerItemsLabel(0), "0 smaller items");
    EXPECT_EQ(ColumnTailSplit::smallerItemsLabel(110), "110 smaller items");
}

} // namespace
} // namespace brimvale
