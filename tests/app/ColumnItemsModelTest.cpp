#include "app/browser/ColumnItemsModel.h"

#include "core/model/ColumnTailSplit.h"
#include "tests/app/AppTestSupport.h"
#include "tests/support/TreeBuilders.h"

#include <QMimeData>
#include <QSignalSpy>
#include <gtest/gtest.h>

#include <memory>

namespace brimvale {
namespace {

using testing::file;
using testing::folder;
using testing::folderOfFiles;

std::vector<std::int64_t> sizes(std::size_t count, std::int64_t size) {
    return std::vector<std::int64_t>(count, size);
}

// 40 items hold 99% of the bytes, 110 items of 10,000 bytes the rest.
FileNodeRef longTailFolder() {
    std::vector<std::int64_t> all = sizes(40, 3'000'000);
    const auto tail = sizes(110, 10'000);
    all.insert(all.end(), tail.begin(), tail.end());
    return folderOfFiles("tail", all);
}

TEST(ColumnItemsModel, FoldsTheTailBehindOneRowAndRevealsItInGrowingSteps) {
    ColumnItemsModel model;
    model.setParentNode(longTailFolder());
    ASSERT_EQ(model.itemCount(), 150u);
    EXPECT_EQ(model.splitIndex(), 40u);
    EXPECT_EQ(model.rowCount(), 41);
    EXPECT_TRUE(model.isTailRow(40));
    EXPECT_EQ(model.data(model.index(40), Qt::DisplayRole).toString(), "110 smaller items");
    EXPECT_EQ(model.data(model.index(40), ColumnItemsModel::SizeTextRole).toString(), "1.1 MB");
    EXPECT_EQ(model.hiddenBytes(), 1'100'000);
    EXPECT_EQ(model.nodeAt(40), nullptr);
    EXPECT_EQ(model.data(model.index(39), Qt::DisplayRole).toString(), "f39");
    // The tail row is not selectable; items are, and can be dragged.
    EXPECT_FALSE(model.flags(model.index(40)) & Qt::ItemIsSelectable);
    EXPECT_TRUE(model.flags(model.index(0)) & Qt::ItemIsDragEnabled);

    // One activation shows at least 100 more (here all 110 but 10 would be left: 100 more).
    model.revealMore();
    EXPECT_EQ(model.revealedCount(), 100u);
    EXPECT_EQ(model.rowCount(), 141);
    EXPECT_EQ(model.data(model.index(140), Qt::DisplayRole).toString(), "10 smaller items");
    model.revealMore();
    EXPECT_EQ(model.hiddenCount(), 0u);
    EXPECT_EQ(model.rowCount(), 150);
    EXPECT_FALSE(model.hasTailRow());
    model.revealMore(); // nothing left: harmless
    EXPECT_EQ(model.rowCount(), 150);
}

TEST(ColumnItemsModel, OneHiddenItemIsSingularAndHiddenItemsAreRevealedWhenSought) {
    // 22 large files and 1 empty folder: the empty folder alone is folded.
    auto root = folderOfFiles("f", sizes(22, 1'000'000));
    root->mutableChildren().push_back(
        FileNode::make({.name = "empty", .path = "f/empty", .isDirectory = true}));
    root->relinkDescendantParentPointers();
    ColumnItemsModel model;
    model.setParentNode(root);
    EXPECT_EQ(model.rowCount(), 23);
    EXPECT_EQ(model.data(model.index(22), Qt::DisplayRole).toString(), "1 smaller item");
    EXPECT_EQ(model.data(model.index(22), ColumnItemsModel::SizeTextRole).toString(), "0 bytes");

    const FileNode* empty = root->children().back().get();
    EXPECT_EQ(model.rowOf(empty, false), -1);
    EXPECT_EQ(model.rowOf(empty, true), 22);
    EXPECT_EQ(model.nodeAt(22), empty);
    EXPECT_FALSE(model.hasTailRow());
    // Not an item of this column at all.
    EXPECT_EQ(model.rowOf(root.get(), true), -1);
}

TEST(ColumnItemsModel, ReadsTheTreeInPlaceAndFollowsALiveFolder) {
    // A live folder: children in reading order, not sorted yet.
    auto live = folder("live", {file("small", 10), file("large", 5000), file("middle", 300)});
    live->relinkDescendantParentPointers();
    ColumnItemsModel model;
    model.setParentNode(live);
    ASSERT_EQ(model.rowCount(), 3);
    EXPECT_EQ(model.nodeAt(0)->name(), "large");
    EXPECT_EQ(model.nodeAt(1)->name(), "middle");
    EXPECT_EQ(model.nodeAt(2)->name(), "small");
    // No copy: the rows are the tree's own nodes.
    EXPECT_EQ(model.nodeAt(0), live->children()[1].get());

    // The folder changes between refreshes; until the refresh the model reads what it had,
    // never past the end of the changed children.
    live->mutableChildren().resize(1); // only "small" is left, at index 0
    EXPECT_EQ(model.rowCount(), 3);
    EXPECT_EQ(model.nodeAt(0), nullptr);
    EXPECT_FALSE(model.data(model.index(0), Qt::DisplayRole).isValid());
    EXPECT_EQ(model.nodeAt(2)->name(), "small");

    // It grows: 40 large items and 25 tiny ones, a tail of 26 (with "small").
    for (int index = 0; index < 40; ++index) {
        live->mutableChildren().push_back(file("grown" + std::to_string(index), 100'000));
    }
    for (int index = 0; index < 25; ++index) {
        live->mutableChildren().push_back(file("tiny" + std::to_string(index), 1));
    }
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    model.refresh();
    EXPECT_EQ(reset.count(), 0); // rows are updated in place: the view keeps its scroll
    EXPECT_EQ(inserted.count(), 1);
    EXPECT_EQ(model.itemCount(), 66u);
    EXPECT_EQ(model.rowCount(), 41);
    EXPECT_EQ(model.nodeAt(0)->name(), "grown0");
    EXPECT_EQ(model.data(model.index(40), Qt::DisplayRole).toString(), "26 smaller items");

    // Revealed items stay revealed while the set of items is the same (sizes may change),
    // and fold again when it changes.
    ASSERT_TRUE(model.hasTailRow());
    model.revealMore();
    const std::size_t revealed = model.revealedCount();
    EXPECT_GT(revealed, 0u);
    live->children()[5]->setSize(7);
    model.refresh();
    EXPECT_EQ(model.revealedCount(), revealed);
    live->mutableChildren().push_back(file("late", 2));
    model.refresh();
    EXPECT_EQ(model.revealedCount(), 0u);

    // Another folder resets the model.
    model.setParentNode(nullptr);
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_EQ(model.firstItemSizeText(), "");
}

TEST(ColumnItemsModel, DragsCarryTheItemsAddresses) {
    ColumnItemsModel model;
    model.setParentNode(folderOfFiles("d", {300, 200}));
    model.setDragURLMaker([](const FileNode& node) {
        return node.name() == "f1" ? QUrl()
                                   : QUrl("file:///d/" + QString::fromUtf8(node.name().data()));
    });
    std::unique_ptr<QMimeData> both(model.mimeData({model.index(0), model.index(1)}));
    ASSERT_NE(both, nullptr);
    ASSERT_EQ(both->urls().size(), 1); // the item without an address is left out
    EXPECT_EQ(both->urls().front(), QUrl("file:///d/f0"));
    std::unique_ptr<QMimeData> none(model.mimeData({model.index(1)}));
    EXPECT_EQ(none, nullptr);
}

} // namespace
} // namespace brimvale
