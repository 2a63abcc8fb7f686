// The map of the tree and the overview pane: drawn off the GUI thread, picking and opening in
// the map, resizing, a live tree redrawn as it grows, and the map, the columns, the largest
// files, the types and the search sharing one selection in the window.
#include "app/MainWindow.h"
#include "app/browser/ColumnBrowser.h"
#include "app/insights/OverviewPanel.h"
#include "app/insights/TreemapView.h"
#include "app/views/TreePage.h"
#include "tests/app/AppTestSupport.h"
#include "tests/support/TreeBuilders.h"

#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>
#include <gtest/gtest.h>

namespace brimvale {
namespace {

using testing::finished;
using testing::pumpUntil;
using testing::ScriptedProvider;

FileNodeRef sized(const std::string& name, std::int64_t size) {
    return FileNode::make({.name = name, .path = "/" + name, .size = size});
}

FileNodeRef sampleTree() {
    return finished(testing::folder(
        "home",
        {testing::folder("Videos", {sized("trip.mov", 6'000'000), sized("clip.mp4", 2'000'000)}),
         testing::folder("Photos",
                         {sized("a.jpg", 900'000), sized("b.jpg", 800'000), sized("empty.jpg", 0)}),
         sized("backup.zip", 3'000'000), sized("notes.txt", 300'000)}));
}

// The centre of the cell showing `node`, in widget coordinates.
QPoint centreOf(const TreemapView& view, const FileNode* node) {
    const auto& cells = view.layout().cells();
    for (const TreemapCell& cell : cells) {
        if (cell.node.get() == node) {
            const double scaleX = view.width() / view.layout().width();
            const double scaleY = view.height() / view.layout().height();
            return QPoint(static_cast<int>((cell.rect.x + cell.rect.width / 2) * scaleX),
                          static_cast<int>((cell.rect.y + cell.rect.height / 2) * scaleY));
        }
    }
    ADD_FAILURE() << "no cell shows " << node->name();
    return {};
}

bool drawnAt(const TreemapView& view, int width, int height) {
    return !view.isDrawing() && !view.image().isNull() && view.layout().width() == width &&
           view.layout().height() == height;
}

const FileNode* child(const FileNodeRef& folder, std::string_view name) {
    for (const FileNodeRef& item : folder->children()) {
        if (item->name() == name) {
            return item.get();
        }
    }
    return nullptr;
}

TEST(TreemapView, DrawsOffTheGuiThreadPicksOpensGoesBackAndFollowsResizes) {
    const FileNodeRef tree = sampleTree();
    TreemapView view;
    view.resize(400, 300);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    view.setRoot(tree);
    ASSERT_TRUE(pumpUntil([&] { return drawnAt(view, 400, 300); }));
    // Every item with bytes has a cell; the empty file none.
    for (const char* name : {"Videos", "Photos", "backup.zip", "notes.txt"}) {
        EXPECT_GE(view.layout().cellShowing(child(tree, name)), 1) << name;
    }
    for (const TreemapCell& cell : view.layout().cells()) {
        EXPECT_NE(cell.node ? cell.node->name() : "", "empty.jpg");
    }
    // Coloured by kind: the video's cell is red, the archive's brown-orange, at their centres.
    const FileNode* trip =
        child(FileNodeRef(const_cast<FileNode*>(child(tree, "Videos"))), "trip.mov");
    const QPoint tripCentre = centreOf(view, trip);
    const QColor video = view.image().pixelColor(tripCentre * view.image().devicePixelRatio());
    EXPECT_GT(video.red(), video.green() + 40);
    EXPECT_GT(video.red(), video.blue() + 40);

    QSignalSpy picked(&view, &TreemapView::itemPicked);
    QTest::mouseMove(&view, tripCentre);
    QTest::mouseClick(&view, Qt::LeftButton, {}, tripCentre);
    ASSERT_EQ(picked.count(), 1);
    EXPECT_EQ(picked.at(0).at(0).value<FileNodeRef>().get(), trip);

    // A double click on a file opens its folder in the whole map; Backspace goes back out.
    QTest::mouseDClick(&view, Qt::LeftButton, {}, tripCentre);
    EXPECT_EQ(view.shownFolder().get(), child(tree, "Videos"));
    ASSERT_TRUE(
        pumpUntil([&] { return drawnAt(view, 400, 300) && view.layout().cells().size() == 3; }));
    view.setFocus();
    QTest::keyClick(&view, Qt::Key_Backspace);
    EXPECT_EQ(view.shownFolder(), tree);
    QTest::keyClick(&view, Qt::Key_Backspace); // at the top already: nothing happens
    EXPECT_EQ(view.shownFolder(), tree);

    // A new size is drawn anew; the old image stands in (stretched) meanwhile.
    view.resize(260, 500);
    EXPECT_FALSE(view.grab().isNull());
    ASSERT_TRUE(pumpUntil([&] { return drawnAt(view, 260, 500); }));
    EXPECT_EQ(view.image().width(), static_cast<int>(260 * view.image().devicePixelRatio()));

    // The same root changed in place (a live scan) is drawn again with what arrived.
    auto& children = tree->mutableChildren();
    children.push_back(sized("new.iso", 20'000'000));
    children.back()->setParent(tree.get());
    tree->propagateSizes();
    view.setRoot(tree);
    ASSERT_TRUE(pumpUntil([&] {
        return !view.isDrawing() && view.layout().cellShowing(children.back().get()) > 0 &&
               view.layout()
                       .cells()[static_cast<std::size_t>(
                           view.layout().cellShowing(children.back().get()))]
                       .node == children.back();
    }));
    // Flat shading: every pixel of a cell is the colour of its kind.
    view.setCushions(false);
    ASSERT_TRUE(pumpUntil([&] { return !view.isDrawing() && drawnAt(view, 260, 500); }));
    const TreemapRect tripRect =
        view.layout().cells()[static_cast<std::size_t>(view.layout().cellShowing(trip))].rect;
    const QPoint corner(static_cast<int>(tripRect.right()) - 3,
                        static_cast<int>(tripRect.bottom()) - 3);
    const QPoint centre = centreOf(view, trip);
    const qreal ratio = view.image().devicePixelRatio();
    EXPECT_EQ(view.image().pixelColor(centre * ratio), view.image().pixelColor(corner * ratio));
    EXPECT_EQ(view.image().pixelColor(centre * ratio),
              TreemapLook::standard(view.font()).categoryColors[0]);
    // Nothing to show: the map empties.
    view.setRoot(nullptr);
    ASSERT_TRUE(pumpUntil([&] { return view.image().isNull(); }));
}

class OverviewWindowTest : public testing::AppTest {
protected:
    void TearDown() override { window.reset(); }
    std::unique_ptr<MainWindow> window;
};

TEST_F(OverviewWindowTest, MapColumnsAndPanesShareOneSelectionDuringAndAfterAScan) {
    auto home = script("home");
    makeViewModel();
    refresh();
    window = std::make_unique<MainWindow>(*viewModel,
                                          MainWindow::Options{.refreshAccountsOnShow = false});
    window->resize(1280, 800);
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    TreePage& page = *window->treePage();
    TreemapView& map = *page.treemap();

    // A live tree is mapped while it grows.
    viewModel->selectProvider(providerNamed("home"));
    ASSERT_TRUE(home->waitForScans(1));
    const FileNodeRef live = finished(testing::folder("home", {sized("first.mov", 1'000'000)}));
    home->push(ScriptedProvider::PartialTree{live});
    page.setMapShown(true);
    ASSERT_TRUE(pumpUntil([&] { return map.isVisible() && map.layout().cells().size() == 2; }));
    EXPECT_FALSE(page.browser()->isVisible());

    const FileNodeRef tree = sampleTree();
    home->push(ScriptedProvider::Finish{tree});
    ASSERT_TRUE(pumpUntil([&] {
        return map.layout().root() == tree && !map.isDrawing() &&
               map.layout().cellShowing(child(tree, "backup.zip")) > 0;
    }));

    // A click in the map selects in the columns; the columns' selection is outlined in the map.
    const FileNode* zip = child(tree, "backup.zip");
    QTest::mouseMove(&map, centreOf(map, zip));
    QTest::mouseClick(&map, Qt::LeftButton, {}, centreOf(map, zip));
    EXPECT_EQ(page.browser()->state().deepestSelection().get(), zip);
    const FileNodeRef photos(const_cast<FileNode*>(child(tree, "Photos")));
    page.browser()->selectPath(FileNodeRef(const_cast<FileNode*>(child(photos, "b.jpg"))));
    EXPECT_EQ(page.browser()->state().columnPath().size(), 2U);

    // Largest files, then the types, of the whole scan; a row picks its item.
    OverviewPanel& pane = *page.overview();
    page.largestFilesButton()->click();
    ASSERT_TRUE(pane.isVisible());
    pane.refreshNow();
    ASSERT_EQ(pane.list()->topLevelItemCount(), 6);
    EXPECT_EQ(pane.list()->topLevelItem(0)->text(1), "trip.mov");
    EXPECT_EQ(pane.list()->topLevelItem(0)->text(2), "Videos");
    pane.list()->itemClicked(pane.list()->topLevelItem(0), 0);
    EXPECT_EQ(page.browser()->state().deepestSelection()->name(), "trip.mov");
    // The selected folder as the scope: only what Videos holds.
    pane.setWholeScan(false);
    pane.refreshNow();
    EXPECT_EQ(pane.list()->topLevelItemCount(), 2);
    pane.setWholeScan(true);

    page.typesButton()->click();
    EXPECT_FALSE(page.largestFilesButton()->isChecked());
    pane.refreshNow();
    EXPECT_EQ(pane.list()->topLevelItem(0)->text(0), "Video");
    EXPECT_EQ(pane.list()->topLevelItem(0)->text(1), "8 MB");

    // Searching shows the matches while typing, whatever pane was open; clearing goes back.
    page.searchField()->setFocus();
    QTest::keyClicks(page.searchField(), "*.JP");
    pane.refreshNow();
    EXPECT_EQ(pane.list()->topLevelItemCount(), 0);
    QTest::keyClicks(page.searchField(), "G");
    pane.refreshNow();
    EXPECT_EQ(pane.summary()->text(), "3 items match");
    EXPECT_EQ(pane.list()->topLevelItem(0)->text(1), "a.jpg");
    QDir().mkpath(BRIMVALE_SCREENSHOT_DIR);
    EXPECT_TRUE(window->grab().save(QString(BRIMVALE_SCREENSHOT_DIR) + "/map-and-search.png"));
    page.searchField()->clear();
    pane.refreshNow();
    EXPECT_EQ(pane.list()->topLevelItem(0)->text(0), "Video");
    // Closing the pane turns its toggles off.
    QTest::mouseClick(pane.findChildren<QToolButton*>().last(), Qt::LeftButton);
    EXPECT_FALSE(pane.isVisible());
    EXPECT_FALSE(page.typesButton()->isChecked());
    page.setMapShown(false);
    EXPECT_TRUE(page.browser()->isVisible());
    EXPECT_FALSE(map.isVisible());
}

} // namespace
} // namespace brimvale
