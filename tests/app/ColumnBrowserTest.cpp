#include "app/browser/ColumnBrowser.h"

#include "app/bridge/ViewModelSignals.h"
#include "app/browser/ColumnItemsModel.h"
#include "app/browser/ColumnListView.h"
#include "app/browser/ColumnResizeSplitter.h"
#include "app/browser/PreviewPanel.h"
#include "app/browser/SelectionDebouncer.h"
#include "app/support/ExternalOpen.h"
#include "tests/app/AppTestSupport.h"

#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::finished;
using testing::folderOfFiles;
using testing::OpenedURLs;
using testing::pumpFor;
using testing::pumpUntil;

FileNodeRef makeFile(const std::string& folderPath, const std::string& name, std::int64_t size) {
    return FileNode::make({.name = name, .path = folderPath + "/" + name, .size = size});
}

FileNodeRef makeFolder(const std::string& path, const std::string& name,
                       std::vector<FileNodeRef> children) {
    return FileNode::make(
        {.name = name, .path = path, .isDirectory = true, .children = std::move(children)});
}

// A local scan of /data: docs (a.txt 3000, b.txt 2000), music (song.mp3 9000), c.txt 500,
// d.txt 400.
FileNodeRef localTree() {
    return finished(makeFolder(
        "data", "data",
        {makeFolder("data/docs", "docs",
                    {makeFile("data/docs", "a.txt", 3000), makeFile("data/docs", "b.txt", 2000)}),
         makeFolder("data/music", "music", {makeFile("data/music", "song.mp3", 9000)}),
         makeFile("data", "c.txt", 500), makeFile("data", "d.txt", 400)}));
}

class ColumnBrowserTest : public testing::AppTest {
protected:
    void SetUp() override {
        local = script("disk", "local");
        makeViewModel();
        refresh();
        // The account is active (its scan waits for steps that never come).
        viewModel->openAccount(providerNamed("disk"), {.localScanPath = "/data"});
        bridge = std::make_unique<ViewModelSignals>(*viewModel);
        browser = std::make_unique<ColumnBrowser>(*viewModel);
        browser->resize(1200, 600);
        browser->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(browser.get()));
    }

    void TearDown() override {
        browser.reset();
        bridge.reset();
    }

    ColumnListView* column(int depth) const { return browser->columnView(depth); }
    std::string selectedName(int depth) const {
        const FileNodeRef node = browser->state().selection(depth);
        return node ? std::string(node->name()) : std::string("(none)");
    }
    // Publishes pending selections and forgets them.
    void settle() {
        pumpUntil([this] { return !browser->debouncer().isPending(); }, 1s);
        pumpFor(10ms);
    }
    QPoint rowCenter(int depth, int row) const {
        const QModelIndex index = column(depth)->model()->index(row, 0);
        column(depth)->scrollTo(index);
        return column(depth)->visualRect(index).center();
    }

    std::shared_ptr<testing::ScriptedProvider> local;
    std::unique_ptr<ViewModelSignals> bridge;
    std::unique_ptr<ColumnBrowser> browser;
};

TEST_F(ColumnBrowserTest, OpensOnTheLargestItemAndPublishesOneSelectionPerBurstOfKeys) {
    const FileNodeRef root = localTree();
    QSignalSpy published(bridge.get(), &ViewModelSignals::selectedNodeChanged);
    browser->setRoot(root);
    EXPECT_EQ(selectedName(0), "music");
    EXPECT_EQ(browser->columnCount(), 2);
    // Not yet published: 80 ms after the last change.
    EXPECT_EQ(published.count(), 0);
    settle();
    ASSERT_EQ(published.count(), 1);
    EXPECT_EQ(viewModel->selectedNode()->name(), "music");

    // Three quick presses: the columns follow each at once, the coordinator hears once.
    published.clear();
    QTest::keyClick(column(0), Qt::Key_Down);
    EXPECT_EQ(selectedName(0), "docs");
    QTest::keyClick(column(0), Qt::Key_Down);
    QTest::keyClick(column(0), Qt::Key_Down);
    EXPECT_EQ(selectedName(0), "d.txt");
    EXPECT_EQ(published.count(), 0);
    settle();
    EXPECT_EQ(published.count(), 1);
    EXPECT_EQ(viewModel->selectedNode()->name(), "d.txt");

    // Up and down stop at the ends of a column.
    QTest::keyClick(column(0), Qt::Key_Down);
    EXPECT_EQ(selectedName(0), "d.txt");
    QTest::keyClick(column(0), Qt::Key_Home);
    QTest::keyClick(column(0), Qt::Key_Up);
    EXPECT_EQ(selectedName(0), "music");
    QTest::keyClick(column(0), Qt::Key_End);
    EXPECT_EQ(selectedName(0), "d.txt");
}

TEST_F(ColumnBrowserTest, ArrowsMoveBetweenColumnsAndDoNothingAtTheEdges) {
    browser->setRoot(localTree());
    // Left in column 0 does nothing.
    QTest::keyClick(column(0), Qt::Key_Left);
    EXPECT_EQ(browser->state().keyboardColumn(), 0);
    EXPECT_EQ(selectedName(0), "music");

    // Right enters the folder: a new column with its largest item selected, keys act there.
    QTest::keyClick(column(0), Qt::Key_Down); // docs
    QTest::keyClick(column(0), Qt::Key_Right);
    EXPECT_EQ(browser->state().keyboardColumn(), 1);
    EXPECT_EQ(selectedName(1), "a.txt");
    EXPECT_TRUE(column(1)->isColumnFocused());
    EXPECT_FALSE(column(0)->isColumnFocused());
    // Right on a file does nothing.
    QTest::keyClick(column(1), Qt::Key_Right);
    EXPECT_EQ(browser->state().keyboardColumn(), 1);
    EXPECT_EQ(browser->columnCount(), 2);

    QTest::keyClick(column(1), Qt::Key_Down);
    EXPECT_EQ(selectedName(1), "b.txt");
    // Left returns to column 0 and drops column 1's selection.
    QTest::keyClick(column(1), Qt::Key_Left);
    EXPECT_EQ(browser->state().keyboardColumn(), 0);
    EXPECT_EQ(browser->state().columnPath().size(), 1u);
    EXPECT_EQ(selectedName(0), "docs");

    // A file selected in column 0 leaves a single column.
    QTest::keyClick(column(0), Qt::Key_End);
    pumpFor(5ms); // the removed column goes later
    EXPECT_EQ(browser->columnCount(), 1);
    settle();
    EXPECT_EQ(viewModel->selectedNode()->name(), "d.txt");
}

TEST(ExternalOpen, LocalAddressesKeepTheBytesOfNamesThatAreNotUtf8) {
    const auto file = FileNode::make({.name = "caf\xE9 x.txt", .path = "d\xFF/caf\xE9 x.txt"});
    const auto folder = FileNode::make({.name = "d\xFF", .path = "d\xFF", .isDirectory = true});
    EXPECT_EQ(ExternalOpen::openURL(*file, true, {}).toEncoded(), "file:///d%FF/caf%E9%20x.txt");
    EXPECT_EQ(ExternalOpen::revealURL(*file, true, {}).toEncoded(), "file:///d%FF");
    EXPECT_EQ(ExternalOpen::openURL(*folder, true, {}).toEncoded(), "file:///d%FF");
    const auto valid = FileNode::make({.name = "\xC3\xA9 #1", .path = "d/\xC3\xA9 #1"});
    EXPECT_EQ(ExternalOpen::openURL(*valid, true, {}), QUrl::fromLocalFile("/d/\u00E9 #1"));
}

TEST_F(ColumnBrowserTest, CtrlDownAndDoubleClickOpenOutsideTheApplication) {
    OpenedURLs opened;
    browser->setRoot(localTree());
    // Ctrl+Down on a folder opens the folder in the file manager.
    QTest::keyClick(column(0), Qt::Key_Down, Qt::ControlModifier);
    ASSERT_EQ(opened.urls.size(), 1u);
    EXPECT_EQ(opened.urls.back(), QUrl::fromLocalFile("/data/music"));
    // Ctrl+Down is not a move.
    EXPECT_EQ(selectedName(0), "music");

    // On a file, the folder that holds it.
    QTest::keyClick(column(0), Qt::Key_End);
    QTest::keyClick(column(0), Qt::Key_Down, Qt::ControlModifier);
    EXPECT_EQ(opened.urls.back(), QUrl::fromLocalFile("/data"));

    // Double-click on a local file opens the file itself.
    QTest::mouseDClick(column(0)->viewport(), Qt::LeftButton, {}, rowCenter(0, 2));
    EXPECT_EQ(opened.urls.back(), QUrl::fromLocalFile("/data/c.txt"));

    // Double-click on a folder opens it in the next column, with the keyboard there.
    const std::size_t before = opened.urls.size();
    QTest::mouseDClick(column(0)->viewport(), Qt::LeftButton, {}, rowCenter(0, 1));
    EXPECT_EQ(opened.urls.size(), before);
    EXPECT_EQ(selectedName(0), "docs");
    EXPECT_EQ(selectedName(1), "a.txt");
    EXPECT_EQ(browser->state().keyboardColumn(), 1);
}

TEST_F(ColumnBrowserTest, TailRowRevealsByClickAndByMovingPastTheLastItem) {
    std::vector<std::int64_t> sizes(40, 3'000'000);
    sizes.insert(sizes.end(), 110, 10'000);
    FileNodeRef root = finished(makeFolder("big", "big", {}));
    FileNodeRef tail = folderOfFiles("big/tail", sizes);
    root = finished(makeFolder("big", "big", {tail}));
    browser->setRoot(root);
    ColumnItemsModel* model = browser->columnModel(1);
    ASSERT_NE(model, nullptr);
    ASSERT_EQ(model->rowCount(), 41);

    // A click on the tail row reveals more and keeps the selection where it was.
    QTest::mouseClick(column(1)->viewport(), Qt::LeftButton, {}, rowCenter(1, 40));
    EXPECT_EQ(model->hiddenCount(), 10u);
    EXPECT_EQ(browser->state().columnPath().size(), 1u);

    // Moving down past the last shown item reveals the rest.
    QTest::mouseClick(column(1)->viewport(), Qt::LeftButton, {}, rowCenter(1, 139));
    EXPECT_EQ(selectedName(1), "f139");
    QTest::keyClick(column(1), Qt::Key_Down);
    EXPECT_EQ(selectedName(1), "f140");
    EXPECT_EQ(model->hiddenCount(), 0u);
}

TEST_F(ColumnBrowserTest, SplittersResizeWithinBoundsAndWidthsFollowTheColumns) {
    browser->setRoot(localTree());
    ColumnResizeSplitter* splitter = browser->splitter(0);
    ASSERT_NE(splitter, nullptr);
    EXPECT_EQ(splitter->toolTip(), "Drag to resize column");
    EXPECT_EQ(column(0)->width(), 260);

    QTest::mousePress(splitter, Qt::LeftButton, {}, QPoint(4, 20));
    // Less than a pixel is not a drag yet.
    QTest::mouseMove(splitter, QPoint(4, 20));
    EXPECT_FALSE(splitter->widthAtDragStart().has_value());
    QTest::mouseMove(splitter, QPoint(904, 20));
    EXPECT_EQ(splitter->widthAtDragStart(), 260);
    EXPECT_EQ(column(0)->width(), 640);
    QTest::mouseMove(splitter, QPoint(-600, 20));
    EXPECT_EQ(column(0)->width(), 140);
    QTest::mouseMove(splitter, QPoint(44, 20));
    EXPECT_EQ(column(0)->width(), 300);
    QTest::mouseRelease(splitter, Qt::LeftButton, {}, QPoint(44, 20));
    EXPECT_FALSE(splitter->widthAtDragStart().has_value());
    EXPECT_EQ(browser->state().columnWidth(0), 300);
}

TEST_F(ColumnBrowserTest, ARootReplacedOnScreenKeepsThePlaceByName) {
    browser->setRoot(localTree());
    QTest::keyClick(column(0), Qt::Key_Down); // docs
    QTest::keyClick(column(0), Qt::Key_Right);
    QTest::keyClick(column(1), Qt::Key_Down); // b.txt
    settle();

    // A rescan's new tree: same names, new nodes.
    const FileNodeRef rescanned = localTree();
    browser->setRoot(rescanned);
    EXPECT_EQ(browser->columnModel(0)->parentNode(), rescanned);
    EXPECT_EQ(selectedName(0), "docs");
    EXPECT_EQ(selectedName(1), "b.txt");
    EXPECT_EQ(browser->state().columnPath()[1]->parent(), browser->state().columnPath()[0].get());
    settle();
    EXPECT_EQ(viewModel->selectedNode(), browser->state().columnPath()[1]);

    // The same root grown in place (a live scan): the new item shows after a refresh.
    rescanned->mutableChildren().push_back(makeFile("data", "late.bin", 100'000));
    rescanned->relinkDescendantParentPointers();
    browser->setRoot(rescanned);
    EXPECT_EQ(browser->columnModel(0)->rowCount(), 5);
    EXPECT_EQ(selectedName(1), "b.txt");

    // Nothing for a moment (a rescan's start), then a tree again: back at the same place.
    browser->setRoot(nullptr);
    pumpFor(5ms);
    EXPECT_EQ(browser->columnCount(), 0);
    EXPECT_FALSE(browser->previewPanelShown());
    browser->setRoot(localTree());
    EXPECT_EQ(selectedName(1), "b.txt");

    // Another account's tree: it opens on its largest item.
    browser->clear();
    browser->setRoot(localTree());
    EXPECT_EQ(selectedName(0), "music");
}

TEST_F(ColumnBrowserTest, PreviewHidesAndComesBackWithTheNextSelection) {
    browser->setRoot(localTree());
    PreviewPanel* preview = browser->previewPanel();
    EXPECT_TRUE(browser->previewPanelShown());
    EXPECT_EQ(preview->width(), 280);
    EXPECT_EQ(preview->closeButton()->toolTip(), "Hide preview (click an item to show again)");

    // A folder with one child: its size, kind, an undated "Modified", one item.
    const std::vector<PreviewPanel::InfoRow> music{
        {"Size", "9 KB"}, {"Kind", "Folder"}, {"Modified", "—"}, {"Items", "1"}};
    EXPECT_EQ(preview->infoRows(), music);
    ASSERT_EQ(preview->largestItems().size(), 1u);
    EXPECT_EQ(preview->largestItems()[0].first, "song.mp3");

    QTest::mouseClick(preview->closeButton(), Qt::LeftButton);
    EXPECT_FALSE(browser->previewPanelShown());
    EXPECT_FALSE(preview->isVisible());
    // Any selection shows it again, on the new item: a file has no Items and no largest.
    QTest::mouseClick(column(0)->viewport(), Qt::LeftButton, {}, rowCenter(0, 2));
    EXPECT_TRUE(browser->previewPanelShown());
    EXPECT_EQ(preview->node()->name(), "c.txt");
    ASSERT_EQ(preview->infoRows().size(), 3u);
    EXPECT_EQ(preview->infoRows()[1].value, "Plain text document");
    EXPECT_TRUE(preview->largestItems().empty());
}

TEST_F(ColumnBrowserTest, ManyColumnsScrollSoTheLastIsInView) {
    // A chain 8 folders deep, wider than the browser.
    FileNodeRef deepest = makeFile("d/1/2/3/4/5/6/7", "leaf", 1);
    FileNodeRef node = deepest;
    std::string path = "d/1/2/3/4/5/6/7";
    for (int level = 7; level >= 1; --level) {
        node = makeFolder(path, std::to_string(level), {node});
        path = path.substr(0, path.rfind('/'));
    }
    browser->setRoot(finished(makeFolder("d", "d", {node})));
    for (int depth = 0; depth < 7; ++depth) {
        QTest::keyClick(column(depth), Qt::Key_Right);
    }
    EXPECT_EQ(browser->columnCount(), 8);
    QScrollBar* bar = browser->scrollArea()->horizontalScrollBar();
    ASSERT_TRUE(
        pumpUntil([bar] { return bar->maximum() > 0 && bar->value() == bar->maximum(); }, 2s));
}

} // namespace
} // namespace brimvale
