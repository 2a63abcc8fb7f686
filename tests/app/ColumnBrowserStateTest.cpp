#include "app/browser/ColumnBrowserState.h"

#include "tests/app/AppTestSupport.h"
#include "tests/support/TreeBuilders.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace brimvale {
namespace {

using testing::file;
using testing::finished;
using testing::folder;

// root: docs (folder: a 300, b 200), photos (folder: big 900), notes.txt 50, empty (folder).
FileNodeRef sampleTree() {
    return finished(folder("root", {folder("docs", {file("a", 300), file("b", 200)}),
                                    folder("photos", {file("big", 900)}), file("notes.txt", 50),
                                    folder("empty", {})}));
}

FileNodeRef child(const FileNodeRef& parent, std::string_view name) {
    for (const auto& node : parent->children()) {
        if (node->name() == name) {
            return node;
        }
    }
    return nullptr;
}

TEST(ColumnBrowserState, ColumnsFollowThePathUpToTheFirstNodeWithoutChildren) {
    const FileNodeRef root = sampleTree();
    ColumnBrowserState state(root);
    EXPECT_EQ(state.columnCount(), 1);
    EXPECT_TRUE(state.selectFirstRootChildIfNeeded());
    EXPECT_EQ(state.columnPath().front(), child(root, "photos")); // the largest
    EXPECT_FALSE(state.selectFirstRootChildIfNeeded());           // only when nothing is selected
    EXPECT_EQ(state.columnCount(), 2);

    // A file or an empty folder opens no column.
    EXPECT_TRUE(state.setSelection(0, child(root, "notes.txt")));
    EXPECT_EQ(state.columnCount(), 1);
    EXPECT_TRUE(state.setSelection(0, child(root, "empty")));
    EXPECT_EQ(state.columnCount(), 1);

    // Selecting in column 1 cuts what was right of it; the same selection again changes
    // nothing; a null selection is ignored.
    const FileNodeRef docs = child(root, "docs");
    EXPECT_TRUE(state.setSelection(0, docs));
    EXPECT_TRUE(state.setSelection(1, child(docs, "b")));
    EXPECT_FALSE(state.setSelection(1, child(docs, "b")));
    EXPECT_FALSE(state.setSelection(1, nullptr));
    EXPECT_EQ(state.columnPath().size(), 2u);
    EXPECT_EQ(state.keyboardColumn(), 1);
    // A depth beyond the path is refused.
    EXPECT_FALSE(state.setSelection(5, child(docs, "a")));
    EXPECT_TRUE(state.setSelection(0, child(root, "photos")));
    EXPECT_EQ(state.columnPath().size(), 1u);
}

TEST(ColumnBrowserState, LeftAndRightArrowsAtTheEnds) {
    const FileNodeRef root = sampleTree();
    ColumnBrowserState state(root);
    // Nothing selected: right has nothing to enter, left nothing to leave.
    EXPECT_FALSE(state.handleKey(ColumnBrowserState::Key::right));
    EXPECT_FALSE(state.handleKey(ColumnBrowserState::Key::left));

    const FileNodeRef docs = child(root, "docs");
    state.setSelection(0, docs);
    // Left in column 0 does nothing.
    EXPECT_FALSE(state.handleKey(ColumnBrowserState::Key::left));
    EXPECT_EQ(state.columnPath().size(), 1u);

    // Right enters the folder and selects its largest item.
    EXPECT_TRUE(state.handleKey(ColumnBrowserState::Key::right));
    EXPECT_EQ(state.keyboardColumn(), 1);
    ASSERT_EQ(state.columnPath().size(), 2u);
    EXPECT_EQ(state.columnPath()[1], child(docs, "a"));

    // Right on a file does nothing.
    EXPECT_FALSE(state.handleKey(ColumnBrowserState::Key::right));
    EXPECT_EQ(state.keyboardColumn(), 1);

    // Left drops the selection of the column it leaves and keeps the one it returns to.
    EXPECT_TRUE(state.handleKey(ColumnBrowserState::Key::left));
    EXPECT_EQ(state.keyboardColumn(), 0);
    ASSERT_EQ(state.columnPath().size(), 1u);
    EXPECT_EQ(state.columnPath()[0], docs);

    // Right again into a column that already has a selection keeps it.
    state.setSelection(1, child(docs, "b"));
    state.focusColumn(0);
    EXPECT_TRUE(state.handleKey(ColumnBrowserState::Key::right));
    EXPECT_EQ(state.columnPath()[1], child(docs, "b"));

    // Right on an empty folder does nothing.
    state.setSelection(0, child(root, "empty"));
    EXPECT_FALSE(state.handleKey(ColumnBrowserState::Key::right));
}

TEST(ColumnBrowserState, WidthsAreClampedAndLiveAsLongAsTheirColumn) {
    ColumnBrowserState state(sampleTree());
    // No stored width yet: the default, and writes are ignored.
    EXPECT_EQ(state.columnWidth(0), 260);
    state.setColumnWidth(0, 300);
    EXPECT_EQ(state.columnWidth(0), 260);
    EXPECT_EQ(state.columnWidth(-1), 260);

    state.syncColumnWidthsToColumnCount(3);
    state.setColumnWidth(0, 1000);
    state.setColumnWidth(1, 50);
    state.setColumnWidth(2, 639);
    EXPECT_EQ(state.columnWidth(0), 640);
    EXPECT_EQ(state.columnWidth(1), 140);
    EXPECT_EQ(state.columnWidth(2), 639);

    // A width survives while its column exists and is forgotten when it goes.
    state.syncColumnWidthsToColumnCount(2);
    EXPECT_EQ(state.storedWidthCount(), 2u);
    state.syncColumnWidthsToColumnCount(3);
    EXPECT_EQ(state.columnWidth(0), 640);
    EXPECT_EQ(state.columnWidth(2), 260);
    state.syncColumnWidthsToColumnCount(0);
    EXPECT_EQ(state.storedWidthCount(), 0u);
}

TEST(ColumnBrowserState, ReplacingTheRootKeepsWhatStillLeadsTheSameWay) {
    const FileNodeRef root = sampleTree();
    ColumnBrowserState state(root);
    const FileNodeRef docs = child(root, "docs");
    state.setSelection(0, docs);
    state.setSelection(1, child(docs, "b"));

    // The same root after a change in place: a pruned selection (its parent link cleared)
    // ends the path there.
    EXPECT_FALSE(state.replaceRoot(root));
    auto& docsChildren = docs->mutableChildren();
    const FileNodeRef b = child(docs, "b");
    docsChildren.erase(std::find(docsChildren.begin(), docsChildren.end(), b));
    b->setParent(nullptr);
    EXPECT_TRUE(state.replaceRoot(root));
    ASSERT_EQ(state.columnPath().size(), 1u);
    EXPECT_EQ(state.columnPath()[0], docs);

    // A new tree (a rescan's): the selections found by name from the root are kept.
    state.setSelection(1, child(docs, "a"));
    const FileNodeRef rescanned = sampleTree();
    EXPECT_TRUE(state.replaceRoot(rescanned));
    ASSERT_EQ(state.columnPath().size(), 2u);
    EXPECT_EQ(state.columnPath()[0], child(rescanned, "docs"));
    EXPECT_EQ(state.columnPath()[1]->parent(), state.columnPath()[0].get());

    // A tree where the path leads nowhere: the path ends where the names stop matching.
    const FileNodeRef other = finished(folder("root", {folder("docs", {file("z", 1)})}));
    state.replaceRoot(other);
    EXPECT_EQ(state.columnPath().size(), 1u);
    EXPECT_LE(state.keyboardColumn(), 0);
    state.replaceRoot(rescanned);

    // A partial tree (a rescan's live tree) without the chosen folder yet: nothing selected,
    // and the browser's own pick of the largest item does not replace the user's choice, so
    // the path comes back as soon as the folder appears.
    state.setSelection(0, child(rescanned, "docs"));
    state.setSelection(1, child(child(rescanned, "docs"), "b"));
    const FileNodeRef partial = finished(folder("root", {file("notes.txt", 50)}));
    state.replaceRoot(partial);
    EXPECT_TRUE(state.columnPath().empty());
    EXPECT_TRUE(state.selectFirstRootChildIfNeeded());
    EXPECT_EQ(state.columnPath().front()->name(), "notes.txt");
    partial->mutableChildren().push_back(folder("docs", {file("b", 7)}));
    partial->relinkDescendantParentPointers();
    EXPECT_TRUE(state.replaceRoot(partial));
    ASSERT_EQ(state.columnPath().size(), 2u);
    EXPECT_EQ(state.columnPath()[1]->name(), "b");

    // Another account: what was chosen does not carry over.
    state.forgetChosenPath();
    state.replaceRoot(sampleTree());
    EXPECT_TRUE(state.columnPath().empty());

    // No tree at all.
    state.replaceRoot(nullptr);
    EXPECT_TRUE(state.columnPath().empty());
    EXPECT_EQ(state.columnCount(), 0);
    EXPECT_FALSE(state.selectFirstRootChildIfNeeded());
}

TEST(ColumnBrowserState, ANodeSwappedOutInPlaceIsNotKept) {
    // A folder refresh puts a new node where the old one was; the old node still points at its
    // parent. A selection the browser made itself (no chosen names) must not stay on it.
    const FileNodeRef root = sampleTree();
    ColumnBrowserState state(root);
    ASSERT_TRUE(state.selectFirstRootChildIfNeeded());
    const FileNodeRef old = child(root, "photos");
    ASSERT_EQ(state.columnPath().front(), old);
    const FileNodeRef fresh = folder("photos", {file("big", 900), file("new", 10)});
    fresh->propagateSizes();
    for (auto& slot : root->mutableChildren()) {
        if (slot == old) {
            slot = fresh;
        }
    }
    fresh->setParent(root.get());
    ASSERT_EQ(old->parent(), root.get());
    EXPECT_TRUE(state.replaceRoot(root));
    EXPECT_TRUE(state.columnPath().empty());
    EXPECT_TRUE(state.selectFirstRootChildIfNeeded());
    EXPECT_EQ(state.columnPath().front(), fresh);

    // A path the user chose follows the names onto the new node and below it.
    ASSERT_TRUE(state.setSelection(1, child(fresh, "new")));
    const FileNodeRef again = folder("photos", {file("new", 5000), file("big", 900)});
    again->propagateSizes();
    for (auto& slot : root->mutableChildren()) {
        if (slot == fresh) {
            slot = again;
        }
    }
    again->setParent(root.get());
    EXPECT_TRUE(state.replaceRoot(root));
    ASSERT_EQ(state.columnPath().size(), 2u);
    EXPECT_EQ(state.columnPath()[0], again);
    EXPECT_EQ(state.columnPath()[1], child(again, "new"));
}

TEST(ColumnBrowserState, LargestChildOfAnUnsortedLiveFolderIsTheFirstOfTheLargest) {
    // A live folder lists children in the order they were read.
    auto live = folder("live", {file("small", 5), file("large1", 70), file("large2", 70)});
    EXPECT_EQ(ColumnBrowserState::firstChildInDisplayOrder(*live)->name(), "large1");
    EXPECT_EQ(ColumnBrowserState::firstChildInDisplayOrder(*folder("none", {})), nullptr);
}

TEST(ColumnBrowserState, TraceNotesIgnoredClears) {
    ColumnBrowserState state(sampleTree());
    std::vector<std::string> lines;
    state.setTrace([&lines](std::string_view line) { lines.emplace_back(line); });
    state.setSelection(0, nullptr);
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.back().find("set nil ignored"), std::string::npos);
}

} // namespace
} // namespace brimvale
