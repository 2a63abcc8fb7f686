#include "app/MainWindow.h"
#include "app/bridge/QtMainQueue.h"
#include "app/browser/ColumnBrowser.h"
#include "app/browser/ColumnItemsModel.h"
#include "app/browser/ColumnListView.h"
#include "app/browser/PreviewPanel.h"
#include "app/onboarding/AddAccountSheet.h"
#include "app/sheets/LocalVolumeSheet.h"
#include "app/sidebar/AccountSidebar.h"
#include "app/sidebar/SidebarModel.h"
#include "app/views/CacheBadge.h"
#include "app/views/FolderRefreshBadge.h"
#include "app/views/SkippedFoldersBadge.h"
#include "app/views/TreePage.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/support/InMemorySettingsStore.h"
#include "tests/app/AppTestSupport.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::pumpUntil;

// Folders album0… of `photos` files each; a photo of album N is about `unit` × (N + 1) bytes,
// so the albums sort by their number.
void writeAlbums(const testing::TemporaryFolder& into, int albums, int photos, std::size_t unit) {
    for (int album = 0; album < albums; ++album) {
        for (int photo = 0; photo < photos; ++photo) {
            testing::writeFileOfSize(into / ("album" + std::to_string(album)) /
                                         ("photo" + std::to_string(photo) + ".jpg"),
                                     unit * static_cast<std::size_t>(album + 1) +
                                         static_cast<std::size_t>(photo));
        }
    }
}

// A coordinator on the application's own main queue, over the sandbox's rclone configuration.
ScannerViewModelOptions coordinatorOptions(QtMainQueue& queue,
                                           const testing::RcloneSandbox& sandbox,
                                           const testing::TemporaryFolder& cache) {
    return {.mainQueue = &queue,
            .settings = std::make_shared<InMemorySettingsStore>(),
            .cacheDirectory = cache.path().string(),
            .runner = sandbox.realRunner()};
}

// Shows the window at a user's size, in front; true once it is on screen.
bool showOnScreen(MainWindow& window) {
    window.resize(1280, 800);
    window.show();
    window.raise();
    window.activateWindow();
    return QTest::qWaitForWindowExposed(&window);
}

void saveScreenshot(QWidget& window, const QString& name) {
    QDir().mkpath(BRIMVALE_SCREENSHOT_DIR);
    const QString path = QString(BRIMVALE_SCREENSHOT_DIR) + "/" + name + ".png";
    EXPECT_TRUE(window.grab().save(path)) << path.toStdString();
}

// The real thing from end to end: the application's window on the real coordinator, the real
// rclone listing an alias remote over a folder of files, driven the way a user would (a click
// in the sidebar, the keyboard in the columns, Rescan in the toolbar). Screenshots of each
// state go to the build folder.
TEST(ApplicationEndToEnd, ScanBrowseAndRescanAnAliasRemote) {
    const bool previousLiveTree = ScanUISettings::liveTreeDuringScan.exchange(true);
    testing::RcloneSandbox sandbox;
    testing::TemporaryFolder cache;
    testing::TemporaryFolder fixture;
    // 40 folders of 25 files, sizes growing with the folder's number; one big file on top.
    writeAlbums(fixture, 40, 25, 1000);
    testing::writeFileOfSize(fixture / "archive.zip", 2'000'000);
    sandbox.addRemote("pictures", "alias", {{"remote", fixture.path().string()}});

    {
        QtMainQueue queue;
        ScannerViewModel viewModel(coordinatorOptions(queue, sandbox, cache));
        MainWindow window(viewModel, {});
        ASSERT_TRUE(showOnScreen(window));

        // The account list is read when the window appears.
        SidebarModel* rows = window.sidebar()->model();
        ASSERT_TRUE(pumpUntil([rows] { return rows->rowOf("pictures") >= 0; }));
        saveScreenshot(window, "idle");

        window.sidebar()->list()->setCurrentIndex(rows->index(rows->rowOf("pictures")));
        bool sawScanning = false;
        ASSERT_TRUE(pumpUntil(
            [&] {
                if (viewModel.state().is<ScannerState::Scanning>() && !sawScanning &&
                    viewModel.state().shownTree()) {
                    sawScanning = true;
                    saveScreenshot(window, "scanning");
                    // A tree still being listed is not previewed.
                    EXPECT_FALSE(window.treePage()->browser()->previewPanel()->isVisible());
                }
                return viewModel.state().is<ScannerState::Done>();
            },
            120s));
        const FileNodeRef root = viewModel.state().shownTree();
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(root->children().size(), 41u);
        EXPECT_EQ(root->children().front()->name(), "archive.zip");
        QTest::qWait(50);
        saveScreenshot(window, "done");

        // The keyboard: down to the largest album, into it, down once.
        ColumnBrowser* browser = window.treePage()->browser();
        ColumnListView* first = browser->columnView(0);
        ASSERT_NE(first, nullptr);
        first->setFocus();
        QTest::keyClick(first, Qt::Key_Down);
        EXPECT_EQ(browser->state().selection(0)->name(), "album39");
        QTest::keyClick(first, Qt::Key_Right);
        ASSERT_NE(browser->columnView(1), nullptr);
        QTest::keyClick(browser->columnView(1), Qt::Key_Down);
        ASSERT_TRUE(pumpUntil(
            [&] {
                return viewModel.selectedNode() &&
                       viewModel.selectedNode()->name() == "photo23.jpg";
            },
            2s));
        saveScreenshot(window, "browsed");

        // The add-account sheet over the window, and the same window in a dark palette.
        viewModel.beginAddAccount();
        ASSERT_TRUE(pumpUntil([&] { return window.addAccountSheet() != nullptr; }));
        window.addAccountSheet()->searchField()->setText("s");
        QTest::qWait(50);
        saveScreenshot(*window.addAccountSheet(), "add-account");
        window.addAccountSheet()->reject();
        ASSERT_TRUE(pumpUntil([&] { return window.addAccountSheet() == nullptr; }));
        // The local disk's sheet, as "Choose disk or folder…" opens it.
        QTest::mouseClick(window.sidebar()->chooseFolderButton(), Qt::LeftButton);
        ASSERT_TRUE(pumpUntil([&] { return window.localVolumeSheet() != nullptr; }));
        ASSERT_TRUE(pumpUntil([&] { return window.localVolumeSheet()->choicesLoaded(); }, 30s));
        QTest::qWait(50);
        saveScreenshot(*window.localVolumeSheet(), "local-volumes");
        window.localVolumeSheet()->reject();
        ASSERT_TRUE(pumpUntil([&] { return window.localVolumeSheet() == nullptr; }));

        const QPalette light = QApplication::palette();
        QApplication::setPalette(testing::darkPalette());
        QTest::qWait(50);
        saveScreenshot(window, "browsed-dark");
        QApplication::setPalette(light);

        // Rescan: a new scan, then the tree again, at the same place.
        testing::writeFileOfSize(fixture / "album39" / "new.raw", 900'000);
        ASSERT_TRUE(window.rescanAction()->isEnabled());
        window.rescanAction()->trigger();
        ASSERT_TRUE(pumpUntil([&] { return !viewModel.state().is<ScannerState::Done>(); }, 10s));
        ASSERT_TRUE(pumpUntil([&] { return viewModel.state().is<ScannerState::Done>(); }, 120s));
        ASSERT_TRUE(pumpUntil([&] { return browser->state().columnPath().size() >= 2; }, 5s));
        EXPECT_EQ(browser->state().selection(0)->name(), "album39");
        EXPECT_EQ(browser->columnModel(1)->nodeAt(0)->name(), "new.raw");
        saveScreenshot(window, "rescanned");

        window.close();
        viewModel.cancelAllWork();
        pumpUntil([&] { return !viewModel.hasBackgroundWork(); }, 10s);
        viewModel.waitForSavedScans(10s);
    }
    ScanUISettings::liveTreeDuringScan = previousLiveTree;
}

// What a person sees on a real display: the whole screen on X (menus and dialogs are windows of
// their own), the widget alone elsewhere. `popup`, when given, is included in the picture.
void saveScreen(QWidget& window, const QString& name, QWidget* popup = nullptr) {
    if (QGuiApplication::platformName() != "xcb") {
        saveScreenshot(popup != nullptr ? *popup : window, name);
        return;
    }
    QDir().mkpath(BRIMVALE_SCREENSHOT_DIR);
    const QString path = QString(BRIMVALE_SCREENSHOT_DIR) + "/" + name + ".png";
    QRect frame = window.frameGeometry();
    if (popup != nullptr) {
        frame = frame.united(popup->frameGeometry());
    }
    frame = frame.adjusted(-8, -8, 8, 8).intersected(window.screen()->geometry());
    EXPECT_TRUE(window.screen()->grabWindow(0).copy(frame).save(path)) << path.toStdString();
}

FileNodeRef childNamed(const FileNodeRef& folder, std::string_view name) {
    for (const auto& child : folder->children()) {
        if (child->name() == name) {
            return child;
        }
    }
    return nullptr;
}

// A folder rclone cannot read (a user other than root: root reads every folder): the scan
// lists the rest and the window says which folder is missing; the list behind the badge;
// "Rescan This Folder" once the folder is readable; a rescan stopped half-way, reopened as a
// partial saved scan.
TEST(ApplicationEndToEnd, UnreadableFolderFolderRescanAndPartialSavedScan) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "root reads every folder; run as another user";
    }
    const bool previousLiveTree = ScanUISettings::liveTreeDuringScan.exchange(true);
    testing::RcloneSandbox sandbox;
    testing::TemporaryFolder cache;
    testing::TemporaryFolder fixture;
    writeAlbums(fixture, 30, 5, 2000);
    testing::writeFileOfSize(fixture / "locked" / "secret.bin", 3'000'000);
    testing::writeFileOfSize(fixture / "archive.zip", 1'000'000);
    const std::string locked = (fixture / "locked").string();
    ASSERT_EQ(chmod(locked.c_str(), 0), 0);
    // Readable again before the fixture is removed, however the test ends.
    struct Unlock {
        std::string path;
        ~Unlock() { chmod(path.c_str(), 0755); }
    } unlock{locked};
    sandbox.addRemote("pictures", "alias", {{"remote", fixture.path().string()}});

    {
        QtMainQueue queue;
        ScannerViewModel viewModel(coordinatorOptions(queue, sandbox, cache));
        MainWindow window(viewModel, {});
        ASSERT_TRUE(showOnScreen(window));
        SidebarModel* rows = window.sidebar()->model();
        ASSERT_TRUE(pumpUntil([rows] { return rows->rowOf("pictures") >= 0; }));
        window.sidebar()->list()->setCurrentIndex(rows->index(rows->rowOf("pictures")));
        ASSERT_TRUE(pumpUntil([&] { return viewModel.state().is<ScannerState::Done>(); }, 120s));

        const auto* done = viewModel.state().as<ScannerState::Done>();
        ASSERT_EQ(done->skippedFolders.size(), 1u);
        EXPECT_EQ(done->skippedFolders.front().location, "/locked");
        TreePage* page = window.treePage();
        ASSERT_TRUE(pumpUntil([&] { return page->skippedBadge()->isVisible(); }, 5s));
        EXPECT_EQ(page->skippedBadge()->textLabel()->text(), "1 folder could not be read");
        QTest::qWait(100);
        saveScreen(window, "unreadable-badge");

        QTest::mouseClick(page->skippedBadge()->showButton(), Qt::LeftButton);
        ASSERT_NE(page->skippedFoldersDialog(), nullptr);
        ASSERT_TRUE(QTest::qWaitForWindowExposed(page->skippedFoldersDialog()));
        QTest::qWait(100);
        saveScreen(window, "unreadable-list");
        saveScreenshot(*page->skippedFoldersDialog(), "unreadable-list-dialog");
        page->skippedFoldersDialog()->reject();
        ASSERT_TRUE(pumpUntil([&] { return page->skippedFoldersDialog() == nullptr; }));

        // The folder becomes readable; its context menu rescans it alone.
        ASSERT_EQ(chmod(locked.c_str(), 0755), 0);
        ColumnBrowser* browser = window.treePage()->browser();
        const FileNodeRef root = viewModel.state().shownTree();
        const FileNodeRef lockedNode = childNamed(root, "locked");
        ASSERT_NE(lockedNode, nullptr);
        EXPECT_EQ(lockedNode->size(), 0);
        browser->selectNode(0, lockedNode);
        ColumnListView* first = browser->columnView(0);
        const int row = browser->columnModel(0)->rowOf(lockedNode.get(), true);
        const QRect rowRect = first->visualRect(browser->columnModel(0)->index(row));
        std::unique_ptr<QMenu> menu = browser->rowMenu(lockedNode);
        menu->popup(first->viewport()->mapToGlobal(rowRect.center()));
        ASSERT_TRUE(QTest::qWaitForWindowExposed(menu.get()));
        QTest::qWait(150);
        saveScreen(window, "rescan-folder-menu", menu.get());
        QAction* rescan = nullptr;
        for (QAction* action : menu->actions()) {
            if (action->text() == "Rescan This Folder") {
                rescan = action;
            }
        }
        ASSERT_NE(rescan, nullptr);
        menu->hide();
        rescan->trigger();
        bool sawBusy = false;
        ASSERT_TRUE(pumpUntil(
            [&] {
                if (!sawBusy && page->refreshBadge()->isVisible()) {
                    sawBusy = true;
                    saveScreen(window, "rescan-folder-busy");
                }
                return viewModel.foldersRefreshing("pictures").empty() &&
                       childNamed(root, "locked")->size() > 0;
            },
            60s));
        EXPECT_EQ(root->children().front()->name(), "locked");
        EXPECT_EQ(browser->state().selection(0), root->children().front());
        QTest::qWait(100);
        saveScreen(window, "rescan-folder-done");

        // The account's own menu has the setting that makes the next scan list folder by folder.
        std::unique_ptr<QMenu> accountMenu =
            window.sidebar()->contextMenuFor(viewModel.provider("pictures"));
        const QRect accountRow =
            window.sidebar()->list()->visualRect(rows->index(rows->rowOf("pictures")));
        accountMenu->popup(window.sidebar()->list()->viewport()->mapToGlobal(accountRow.center()));
        ASSERT_TRUE(QTest::qWaitForWindowExposed(accountMenu.get()));
        QTest::qWait(150);
        saveScreen(window, "account-menu", accountMenu.get());
        accountMenu->hide();

        // A rescan listed one folder per rclone run (slow enough to stop half-way), stopped,
        // then the account opened again: its saved tree is partial.
        viewModel.setListsOneFolderAtATime("pictures", true);
        window.rescanAction()->trigger();
        ASSERT_TRUE(pumpUntil(
            [&] {
                return viewModel.state().is<ScannerState::Scanning>() &&
                       viewModel.state().shownTree() != nullptr;
            },
            60s));
        QTest::qWait(300);
        window.stopAction()->trigger();
        ASSERT_TRUE(viewModel.waitForSavedScans(20s));
        viewModel.selectProvider(viewModel.provider("pictures"));
        ASSERT_TRUE(pumpUntil([&] { return viewModel.state().is<ScannerState::Done>(); }, 60s));
        EXPECT_TRUE(viewModel.state().as<ScannerState::Done>()->partial);
        ASSERT_TRUE(pumpUntil([&] { return page->cacheBadge()->isPartial(); }, 5s));
        EXPECT_TRUE(page->cacheBadge()->dateLabel()->text().startsWith("Partial scan, saved"));
        QTest::qWait(100);
        saveScreen(window, "partial-scan");

        window.close();
        viewModel.cancelAllWork();
        pumpUntil([&] { return !viewModel.hasBackgroundWork(); }, 10s);
        viewModel.waitForSavedScans(10s);
    }
    ScanUISettings::liveTreeDuringScan = previousLiveTree;
}

} // namespace
} // namespace brimvale
