#include "core/insights/TreemapLayout.h"

#include "tests/insights/RandomTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

namespace brimvale {
namespace {

double aspect(const TreemapRect& rect) {
    return std::max(rect.width / rect.height, rect.height / rect.width);
}

// Checks that `rects` tile `bounds` exactly (inside it, no overlaps, no area left over) with
// areas in proportion to `sizes`, within a pixel.
void expectTiling(const std::vector<TreemapRect>& rects, const std::vector<double>& sizes,
                  const TreemapRect& bounds) {
    ASSERT_EQ(rects.size(), sizes.size());
    const double total = std::accumulate(sizes.begin(), sizes.end(), 0.0);
    const double epsilon = 1e-6 * std::max(1.0, bounds.width + bounds.height);
    double covered = 0;
    for (std::size_t i = 0; i < rects.size(); ++i) {
        const TreemapRect& r = rects[i];
        EXPECT_GE(r.x, bounds.x - epsilon);
        EXPECT_GE(r.y, bounds.y - epsilon);
        EXPECT_LE(r.right(), bounds.right() + epsilon);
        EXPECT_LE(r.bottom(), bounds.bottom() + epsilon);
        EXPECT_NEAR(r.area(), bounds.area() * sizes[i] / total, 1.0) << "rect " << i;
        covered += r.area();
        for (std::size_t j = i + 1; j < rects.size() && rects.size() <= 200; ++j) {
            const TreemapRect& s = rects[j];
            const double overlapWidth = std::min(r.right(), s.right()) - std::max(r.x, s.x);
            const double overlapHeight = std::min(r.bottom(), s.bottom()) - std::max(r.y, s.y);
            EXPECT_FALSE(overlapWidth > epsilon && overlapHeight > epsilon) << i << " and " << j;
        }
    }
    EXPECT_NEAR(covered, bounds.area(), epsilon * std::max(1.0, bounds.width + bounds.height));
}

// The simple reference: slices along the longer side, one per item.
std::vector<TreemapRect> sliceLayout(const std::vector<double>& sizes, TreemapRect bounds) {
    const double total = std::accumulate(sizes.begin(), sizes.end(), 0.0);
    std::vector<TreemapRect> rects;
    double offset = 0;
    for (const double size : sizes) {
        const double share = size / total;
        if (bounds.width >= bounds.height) {
            rects.push_back({bounds.x + offset, bounds.y, bounds.width * share, bounds.height});
            offset += bounds.width * share;
        } else {
            rects.push_back({bounds.x, bounds.y + offset, bounds.width, bounds.height * share});
            offset += bounds.height * share;
        }
    }
    return rects;
}

TEST(Squarify, TilesInProportionAndSquarerThanSlicing) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    double squarifiedSum = 0;
    double slicedSum = 0;
    for (int round = 0; round < 300; ++round) {
        const auto count = static_cast<std::size_t>(1 + random() % (round < 250 ? 40 : 3000));
        std::vector<double> sizes(count);
        for (double& size : sizes) {
            // Heavy-tailed, with ties, like file sizes.
            size = random() % 5 == 0 ? 4096 : std::pow(10.0, 1 + 8 * unit(random));
        }
        std::sort(sizes.rbegin(), sizes.rend());
        const TreemapRect bounds{10 * unit(random), 10 * unit(random), 1 + 1500 * unit(random),
                                 1 + 900 * unit(random)};
        SCOPED_TRACE(round);
        const auto rects = squarify(sizes, bounds);
        expectTiling(rects, sizes, bounds);
        const auto sliced = sliceLayout(sizes, bounds);
        double squarified = 0;
        double slicing = 0;
        for (std::size_t i = 0; i < count; ++i) {
            squarified += aspect(rects[i]);
            slicing += aspect(sliced[i]);
        }
        EXPECT_LE(squarified, slicing * (1 + 1e-9));
        squarifiedSum += squarified / static_cast<double>(count);
        slicedSum += slicing / static_cast<double>(count);
    }
    // Over all rounds, by far squarer.
    EXPECT_LT(squarifiedSum * 5, slicedSum);
    // Nothing to lay out, or nowhere to put it.
    EXPECT_TRUE(squarify({}, {0, 0, 10, 10}).empty());
    const std::vector<double> one{5};
    EXPECT_EQ(squarify(one, {1, 2, 0, 10})[0].area(), 0);
}

TEST(TreemapLayout, NestedCellsTileTheirFoldersAndAccountForEveryByte) {
    std::mt19937_64 random(9);
    const TreemapOptions options{.padding = 2, .headerHeight = 12, .minimumCellArea = 6};
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        const FileNodeRef root = testing::randomTree(random, 6);
        const double width = 200 + static_cast<double>(random() % 1200);
        const double height = 100 + static_cast<double>(random() % 800);
        TreemapLayout layout = TreemapLayout::take(root, width, height, options);
        layout.layOut(width, height);
        const auto& cells = layout.cells();
        if (root->size() == 0) {
            EXPECT_TRUE(cells.empty());
            continue;
        }
        ASSERT_FALSE(cells.empty());
        EXPECT_EQ(cells[0].node, root);
        for (std::size_t i = 0; i < cells.size(); ++i) {
            const TreemapCell& cell = cells[i];
            ASSERT_GT(cell.size, 0);
            EXPECT_EQ(cell.node ? cell.node->size() : cell.size, cell.size);
            if (!cell.opened) {
                EXPECT_EQ(cell.subtreeEnd, i + 1);
                if (cell.visible && cell.rect.width >= 1 && cell.rect.height >= 1) {
                    const int hit = layout.cellAt(cell.rect.x + cell.rect.width / 2,
                                                  cell.rect.y + cell.rect.height / 2);
                    EXPECT_EQ(hit, static_cast<int>(i));
                    if (cell.node) {
                        EXPECT_EQ(layout.cellShowing(cell.node.get()), static_cast<int>(i));
                    }
                }
                continue;
            }
            // Children: every positive child shown, or folded into the one rest cell.
            std::vector<TreemapRect> rects;
            std::vector<double> sizes;
            std::int64_t shownBytes = 0;
            std::int64_t restItems = 0;
            for (std::size_t child = i + 1; child < cell.subtreeEnd;
                 child = cells[child].subtreeEnd) {
                EXPECT_EQ(cells[child].parent, static_cast<int>(i));
                rects.push_back(cells[child].rect);
                sizes.push_back(static_cast<double>(cells[child].size));
                shownBytes += cells[child].size;
                restItems += cells[child].node ? 1 : cells[child].restCount;
            }
            std::int64_t positiveBytes = 0;
            std::int64_t positiveItems = 0;
            for (const FileNodeRef& child : cell.node->children()) {
                positiveBytes += child->size();
                positiveItems += child->size() > 0 ? 1 : 0;
            }
            EXPECT_EQ(shownBytes, positiveBytes);
            EXPECT_EQ(restItems, positiveItems);
            if (cell.visible && cells[i + 1].visible) {
                expectTiling(rects, sizes, layout.inside(cell));
            }
        }
        // A folder's node outside the map is shown by nothing; the root by the root cell.
        const FileNodeRef stranger = FileNode::make({.name = "s", .path = "/s", .size = 1});
        EXPECT_EQ(layout.cellShowing(stranger.get()), -1);
        EXPECT_EQ(layout.cellShowing(root.get()), 0);
        EXPECT_EQ(layout.cellAt(-1, 0), -1);
        EXPECT_EQ(layout.cellAt(width, 0), -1);
    }
}

TEST(TreemapLayout, CellsAreBoundedByTheAreaNotByTheTree) {
    // 100,000 files in one folder, on 100 × 100 pixels: what is too small becomes one rest.
    FileNodeRef root = FileNode::make({.name = "r", .path = "/r", .isDirectory = true});
    for (int i = 0; i < 100'000; ++i) {
        root->mutableChildren().push_back(FileNode::make(
            {.name = "f" + std::to_string(i), .path = "/r/f", .size = i < 10 ? 1'000'000 : 100}));
    }
    root->propagateSizes();
    TreemapLayout layout = TreemapLayout::take(root, 100, 100, {.padding = 0, .minimumCellArea = 4});
    layout.layOut(100, 100);
    ASSERT_EQ(layout.cells().size(), 12u); // the root, ten large files, the rest
    EXPECT_EQ(layout.cells().back().node, nullptr);
    EXPECT_EQ(layout.cells().back().restCount, 99'990);
    EXPECT_EQ(layout.cells().back().size, 9'999'000);
    // Laying the same cells out again for another size keeps them and fills the new area.
    TreemapLayout resized = layout;
    resized.layOut(300, 50);
    EXPECT_DOUBLE_EQ(resized.cells()[0].rect.area(), 15'000);
    EXPECT_EQ(resized.cells().size(), layout.cells().size());
}

} // namespace
} // namespace brimvale
