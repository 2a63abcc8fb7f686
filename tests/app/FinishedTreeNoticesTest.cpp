// What the window shows around a finished tree: the folders a scan could not read, a partial
// saved scan, "Rescan This Folder" and its progress or failure, and the account's "List One
// Folder at a Time" setting.
#include "app/MainWindow.h"
#include "app/browser/ColumnBrowser.h"
#include "app/browser/ColumnItemsModel.h"
#include "app/browser/ColumnListView.h"
#include "app/sidebar/AccountSidebar.h"
#include "app/views/CacheBadge.h"
#include "app/views/FolderRefreshBadge.h"
#include "app/views/SkippedFoldersBadge.h"
#include "app/views/TreePage.h"
#include "core/rclone/BrimvaleError.h"
#include "tests/app/AppTestSupport.h"
#include "tests/app/VisibleTextChecks.h"
#include "tests/support/TreeBuilders.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>
#include <gtest/gtest.h>

#include <filesystem>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::file;
using testing::finished;
using testing::folder;
using testing::pumpUntil;
using testing::ScriptedProvider;

std::vector<std::string> locations(const std::vector<SkippedFolder>& folders) {
    std::vector<std::string> result;
    for (const auto& folder : folders) {
        result.push_back(folder.location);
    }
    return result;
}

QAction* actionNamed(QMenu& menu, const QString& text) {
    for (QAction* action : menu.actions()) {
        if (action->text() == text) {
            return action;
        }
    }
    return nullptr;
}

TEST(FinishedTreeNotices, UnreadableFoldersAreCountedSortedByPathAndCopied) {
    EXPECT_EQ(SkippedFoldersBadge::countText(1), "1 folder could not be read");
    EXPECT_EQ(SkippedFoldersBadge::countText(3), "3 folders could not be read");
    EXPECT_EQ(SkippedFoldersBadge::countText(1204), "1,204 folders could not be read");

    // Path order is by component: a folder comes right before what it holds (plain byte order
    // would put "/a b" between "/a" and "/a/b"), digits by value, case folded, and names that
    // rank equal by bytes, so the order never depends on the input's.
    const std::vector<SkippedFolder> unsorted{
        {.location = "/a/b", .reason = "permission denied"},
        {.location = "/a b", .reason = "permission denied"},
        {.location = "/f10", .reason = "permission denied"},
        {.location = "/F2", .reason = "permission denied"},
        {.location = "/a", .reason = "permission denied"},
        {.location = "/f2", .reason = "no such file"},
        {.location = "/z", .reason = "", .timedOut = true},
    };
    const auto sorted = SkippedFoldersDialog::sortedByPath(unsorted);
    EXPECT_EQ(locations(sorted),
              (std::vector<std::string>{"/a", "/a/b", "/a b", "/F2", "/f2", "/f10", "/z"}));
    auto reversed = unsorted;
    std::reverse(reversed.begin(), reversed.end());
    EXPECT_EQ(SkippedFoldersDialog::sortedByPath(reversed), sorted);
    EXPECT_EQ(SkippedFoldersDialog::reasonText(sorted.back()), "no answer in time");
    EXPECT_EQ(SkippedFoldersDialog::copyText({sorted[0], sorted[1]}),
              "/a: permission denied\n/a/b: permission denied\n");
    EXPECT_EQ(SkippedFoldersDialog::copyText({}), "");

    // The dialog lists them in that order; Ctrl+C copies the selected rows, or all of them.
    SkippedFoldersDialog dialog(unsorted, false);
    dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    ASSERT_EQ(dialog.list()->topLevelItemCount(), 7);
    EXPECT_EQ(dialog.list()->topLevelItem(1)->text(0), "/a/b");
    EXPECT_EQ(dialog.list()->topLevelItem(4)->text(1), "no such file");
    dialog.list()->setFocus();
    QTest::keyClick(dialog.list(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QApplication::clipboard()->text().count('\n'), 7);
    dialog.list()->topLevelItem(2)->setSelected(true);
    dialog.list()->topLevelItem(6)->setSelected(true);
    QTest::keyClick(dialog.list(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QApplication::clipboard()->text(),
              "/a b: permission denied\n/z: no answer in time\n");
    QTest::mouseClick(dialog.copyButton(), Qt::LeftButton);
    EXPECT_EQ(QApplication::clipboard()->text(), SkippedFoldersDialog::copyText(sorted));

    // Names that are not UTF-8 (possible on Linux) are shown, not dropped.
    SkippedFoldersDialog odd({{.location = "/bad\xff", .reason = "permission denied"}}, true);
    ASSERT_EQ(odd.list()->topLevelItemCount(), 1);
    EXPECT_TRUE(odd.list()->topLevelItem(0)->text(0).startsWith("/bad"));
}

TEST(FinishedTreeNotices, PartialScanBadgeAndRefreshBadgeTexts) {
    const Date now = Date::fromUnixSeconds(1'700'000'000);
    const Date threeHoursAgo = Date::fromUnixSeconds(1'700'000'000 - 3 * 3600 - 60);
    EXPECT_EQ(CacheBadge::partialScanText(threeHoursAgo, now), "Partial scan, saved 3 hours ago");
    EXPECT_EQ(CacheBadge::partialScanText(std::nullopt, now), "Partial scan");

    CacheBadge badge;
    badge.show();
    const Date recent = Date::fromUnixSeconds(
        static_cast<double>(QDateTime::currentSecsSinceEpoch()) - 3 * 3600 - 60);
    badge.setScan(recent, 5000, std::nullopt, true);
    EXPECT_EQ(badge.dateLabel()->text(), "Partial scan, saved 3 hours ago");
    EXPECT_TRUE(badge.dateLabel()->toolTip().contains("Rescan completes it"));
    EXPECT_FALSE(badge.rescanButton()->toolTip().isEmpty());
    // A partial scan without a date still says so; a complete one after it drops the words.
    badge.setScan(std::nullopt, 5000, std::nullopt, true);
    EXPECT_TRUE(badge.dateLabel()->isVisible());
    EXPECT_EQ(badge.dateLabel()->text(), "Partial scan");
    badge.setScan(recent, 5000, std::nullopt, false);
    EXPECT_TRUE(badge.dateLabel()->text().startsWith("Cached "));
    EXPECT_TRUE(badge.rescanButton()->toolTip().isEmpty());
    EXPECT_TRUE(badge.dateLabel()->toolTip().indexOf("Rescan") < 0);

    EXPECT_EQ(FolderRefreshBadge::busyText({"/Photos/2024"}), "Rescanning “2024”…");
    EXPECT_EQ(FolderRefreshBadge::busyText({"2024/"}), "Rescanning “2024”…");
    EXPECT_EQ(FolderRefreshBadge::busyText({"/a", "/b/c"}), "Rescanning 2 folders…");
    FolderRefreshBadge refresh;
    EXPECT_FALSE(refresh.setStatus({}, {}));
    // A running refresh comes before an older failure.
    EXPECT_TRUE(refresh.setStatus({"/a"}, "connection reset"));
    EXPECT_TRUE(refresh.isBusy());
    EXPECT_EQ(refresh.textLabel()->text(), "Rescanning “a”…");
    EXPECT_TRUE(refresh.setStatus({}, "connection reset"));
    EXPECT_FALSE(refresh.isBusy());
    EXPECT_EQ(refresh.textLabel()->text(), "Couldn’t rescan the folder");
    EXPECT_EQ(refresh.detailLabel()->text(), "connection reset");
}

class FinishedTreeWindowTest : public testing::AppTest {
protected:
    void TearDown() override { window.reset(); }
    void makeWindow() {
        window = std::make_unique<MainWindow>(*viewModel,
                                              MainWindow::Options{.refreshAccountsOnShow = false});
        window->resize(1200, 700);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    // Scans `id` to the end with `tree`.
    void scanToDone(const std::shared_ptr<ScriptedProvider>& account, const FileNodeRef& tree) {
        const int before = account->scansStarted();
        viewModel->selectProvider(providerNamed(account->remoteID()));
        ASSERT_TRUE(account->waitForScans(before + 1));
        account->push(ScriptedProvider::Finish{tree});
        ASSERT_TRUE(pumpUntil([&] {
            const auto* done = viewModel->state().as<ScannerState::Done>();
            return done != nullptr && done->root == tree;
        }));
    }
    TreePage* page() const { return window->treePage(); }

    std::unique_ptr<MainWindow> window;
};

TEST_F(FinishedTreeWindowTest, UnreadableFoldersBadgeOpensTheListAndAPartialScanSaysSo) {
    auto photos = script("photos");
    makeViewModel();
    refresh();
    makeWindow();
    const FileNodeRef tree = finished(folder("photos", {file("big.bin", 4'000'000)}));
    scanToDone(photos, tree);
    // None unreadable, complete: no badge, the usual date.
    EXPECT_FALSE(page()->skippedBadge()->isVisible());
    EXPECT_FALSE(page()->refreshBadge()->isVisible());
    EXPECT_FALSE(page()->cacheBadge()->isPartial());

    const Date saved = Date::fromUnixSeconds(
        static_cast<double>(QDateTime::currentSecsSinceEpoch()) - 2 * 3600 - 60);
    viewModel->applyPaneState(
        ScannerState::Done{.root = tree,
                           .savedDate = saved,
                           .skippedFolders = {{.location = "/Shared/b", .reason = "403 Forbidden"},
                                              {.location = "/Shared/a", .reason = "403 Forbidden"},
                                              {.location = "/Archive", .reason = "timeout"}},
                           .partial = true},
        "photos");
    ASSERT_TRUE(pumpUntil([this] { return page()->skippedBadge()->isVisible(); }));
    EXPECT_EQ(page()->skippedBadge()->textLabel()->text(), "3 folders could not be read");
    EXPECT_EQ(page()->cacheBadge()->dateLabel()->text(), "Partial scan, saved 2 hours ago");
    // The badges sit in a line of their own below the columns: no row is hidden, and a
    // longer text gets the room it needs.
    QApplication::processEvents();
    const auto onPage = [this](const QWidget* widget) {
        return QRect(widget->mapTo(page(), QPoint(0, 0)), widget->size());
    };
    for (const QWidget* badge : {static_cast<QWidget*>(page()->cacheBadge()),
                                 static_cast<QWidget*>(page()->skippedBadge())}) {
        EXPECT_FALSE(onPage(badge).intersects(onPage(page()->browser())));
        EXPECT_TRUE(page()->rect().contains(onPage(badge)));
    }
    const QLabel* date = page()->cacheBadge()->dateLabel();
    EXPECT_GE(date->width(), date->fontMetrics().horizontalAdvance(date->text()));
    // A tooltip says more than what it is the tooltip of, or is not there.
    EXPECT_EQ(testing::repeatedToolTips(*window), QStringList());

    // A click on the badge itself opens the list, sorted by path; a second click raises it.
    QTest::mouseClick(page()->skippedBadge(), Qt::LeftButton, {}, QPoint(4, 4));
    ASSERT_NE(page()->skippedFoldersDialog(), nullptr);
    SkippedFoldersDialog* dialog = page()->skippedFoldersDialog();
    EXPECT_EQ(locations(dialog->folders()),
              (std::vector<std::string>{"/Archive", "/Shared/a", "/Shared/b"}));
    QTest::mouseClick(page()->skippedBadge()->showButton(), Qt::LeftButton);
    EXPECT_EQ(page()->skippedFoldersDialog(), dialog);
    EXPECT_EQ(testing::repeatedToolTips(*dialog), QStringList());
    dialog->reject();
    ASSERT_TRUE(pumpUntil([this] { return page()->skippedFoldersDialog() == nullptr; }));

    // Hidden with its close button until another result comes.
    QTest::mouseClick(page()->skippedBadge()->closeButton(), Qt::LeftButton);
    EXPECT_FALSE(page()->skippedBadge()->isVisible());
    viewModel->applyPaneState(ScannerState::Done{.root = tree, .skippedFolders = {{"/x", "e"}}},
                              "photos");
    ASSERT_TRUE(pumpUntil([this] { return page()->skippedBadge()->isVisible(); }));
    EXPECT_EQ(page()->skippedBadge()->textLabel()->text(), "1 folder could not be read");
    EXPECT_FALSE(page()->cacheBadge()->isPartial());

    // Another tree with none: gone.
    const FileNodeRef clean = finished(folder("photos", {file("other.bin", 10)}));
    viewModel->applyPaneState(ScannerState::Done{.root = clean}, "photos");
    ASSERT_TRUE(pumpUntil([this] { return !page()->skippedBadge()->isVisibleTo(page()); }));
}

TEST_F(FinishedTreeWindowTest, AScanThatCouldNotBeSavedWarnsOnItsPaneUntilASaveSucceeds) {
    auto photos = script("photos");
    makeViewModel();
    refresh();
    makeWindow();
    // A file where the cache folder should be: no save can succeed.
    std::filesystem::remove_all(cacheFolder.path());
    testing::writeFile(cacheFolder.path(), "");
    const FileNodeRef tree = finished(folder("photos", {file("big.bin", 4'000'000)}));
    scanToDone(photos, tree);
    ASSERT_TRUE(pumpUntil([this] { return !page()->cacheBadge()->saveFailure().isEmpty(); }));
    EXPECT_TRUE(page()->cacheBadge()->isVisible());
    EXPECT_EQ(page()->cacheBadge()->dateLabel()->text(), "Not saved");
    EXPECT_TRUE(page()->cacheBadge()->dateLabel()->toolTip().contains("Not a directory"))
        << page()->cacheBadge()->dateLabel()->toolTip().toStdString();
    EXPECT_TRUE(viewModel->savedScanFailure("photos"));

    // Dismissed, then the folder is back and a rescan saves: the warning is gone.
    QTest::mouseClick(page()->cacheBadge()->closeButton(), Qt::LeftButton);
    EXPECT_FALSE(page()->cacheBadge()->isVisible());
    std::filesystem::remove(cacheFolder.path());
    std::filesystem::create_directories(cacheFolder.path());
    const int before = photos->scansStarted();
    viewModel->rescan();
    ASSERT_TRUE(photos->waitForScans(before + 1));
    const FileNodeRef again = finished(folder("photos", {file("big.bin", 5'000'000)}));
    photos->push(ScriptedProvider::Finish{again});
    // The finished tree is saved once the main thread has taken it: wait for that first.
    ASSERT_TRUE(pumpUntil([&] {
        const auto* done = viewModel->state().as<ScannerState::Done>();
        return done != nullptr && done->root == again;
    }));
    ASSERT_TRUE(viewModel->waitForSavedScans(20s));
    ASSERT_TRUE(pumpUntil([&] {
        const auto* done = viewModel->state().as<ScannerState::Done>();
        return done != nullptr && done->root == again && !done->saveFailure;
    }));
    EXPECT_TRUE(page()->cacheBadge()->saveFailure().isEmpty());
    EXPECT_FALSE(viewModel->savedScanFailure("photos"));
    EXPECT_TRUE(std::filesystem::exists(cacheFolder.path() / "photos.cache"));
}

TEST_F(FinishedTreeWindowTest, RescanThisFolderShowsItBusyKeepsThePathAndReportsAFailure) {
    auto photos = script("photos");
    makeViewModel();
    refresh();
    makeWindow();
    const FileNodeRef tree = finished(
        folder("photos", {file("big.bin", 4'000'000),
                          folder("sub", {file("s.txt", 7), file("t.txt", 5)}), file("c.txt", 3)}));
    scanToDone(photos, tree);
    ColumnBrowser* browser = page()->browser();
    const FileNodeRef sub = tree->children()[1];
    ASSERT_EQ(sub->name(), "sub");
    browser->selectNode(0, sub);
    browser->selectNode(1, sub->children()[1]); // t.txt

    // Files get no new item; folders do.
    auto fileMenu = browser->rowMenu(tree->children()[0]);
    EXPECT_EQ(actionNamed(*fileMenu, "Rescan This Folder"), nullptr);
    auto menu = browser->rowMenu(sub);
    QAction* rescan = actionNamed(*menu, "Rescan This Folder");
    ASSERT_NE(rescan, nullptr);
    ASSERT_TRUE(rescan->isEnabled());
    rescan->trigger();
    ASSERT_TRUE(photos->waitForScans(2));
    EXPECT_EQ(viewModel->foldersRefreshing("photos"), std::set<std::string>{"/sub"});
    ASSERT_TRUE(pumpUntil([&] { return browser->refreshingFolders().contains("/sub"); }));
    EXPECT_TRUE(browser->columnView(0)->isBusy(*sub));
    EXPECT_FALSE(browser->columnView(0)->isBusy(*tree->children()[0]));
    EXPECT_TRUE(page()->refreshBadge()->isVisible());
    EXPECT_EQ(page()->refreshBadge()->textLabel()->text(), "Rescanning “sub”…");
    // Meanwhile the tree stays usable, and the same folder cannot be asked again.
    auto during = browser->rowMenu(sub);
    EXPECT_FALSE(actionNamed(*during, "Rescan This Folder")->isEnabled());
    browser->selectNode(0, tree->children()[2]);
    browser->selectNode(0, sub);
    browser->selectNode(1, sub->children()[1]);

    // The folder grew past big.bin: it moves first, and the browser stays on it and on t.txt.
    const FileNodeRef grown =
        folder("sub", {file("s.txt", 7), file("t.txt", 5), file("new.bin", 9'000'000)});
    grown->propagateSizes();
    photos->push(ScriptedProvider::Finish{grown});
    ASSERT_TRUE(pumpUntil([&] { return browser->refreshingFolders().empty(); }));
    EXPECT_FALSE(page()->refreshBadge()->isVisible());
    EXPECT_EQ(tree->children().front(), grown);
    ASSERT_GE(browser->state().columnPath().size(), 2u);
    EXPECT_EQ(browser->state().selection(0), grown);
    EXPECT_EQ(browser->state().selection(1)->name(), "t.txt");
    EXPECT_EQ(browser->state().selection(1)->parent(), grown.get());
    EXPECT_EQ(browser->columnModel(1)->parentNode(), grown);
    EXPECT_EQ(browser->columnModel(1)->nodeAt(0)->name(), "new.bin");

    // A failure is shown with its reason and leaves the tree; closing hides it until the next.
    auto again = browser->rowMenu(grown);
    actionNamed(*again, "Rescan This Folder")->trigger();
    ASSERT_TRUE(photos->waitForScans(3));
    photos->push(ScriptedProvider::Fail{
        std::make_exception_ptr(BrimvaleError::scanFailed("Scripted photos", "connection reset"))});
    ASSERT_TRUE(pumpUntil([&] { return viewModel->folderRefreshError("photos").has_value(); }));
    ASSERT_TRUE(pumpUntil([&] { return !page()->refreshBadge()->isBusy(); }));
    EXPECT_TRUE(page()->refreshBadge()->isVisible());
    EXPECT_EQ(page()->refreshBadge()->textLabel()->text(), "Couldn’t rescan the folder");
    EXPECT_TRUE(page()->refreshBadge()->detailLabel()->text().contains("connection reset"));
    EXPECT_EQ(browser->state().selection(0), grown);
    QTest::mouseClick(page()->refreshBadge()->closeButton(), Qt::LeftButton);
    EXPECT_FALSE(page()->refreshBadge()->isVisible());
    // The same error re-announced (another field changed) stays hidden.
    viewModel->applyPaneState(viewModel->state(), "photos");
    QTest::qWait(20);
    EXPECT_FALSE(page()->refreshBadge()->isVisible());

    // While a scan runs the item is there but cannot be used.
    window->rescanAction()->trigger();
    ASSERT_TRUE(photos->waitForScans(4));
    ASSERT_TRUE(pumpUntil([this] { return viewModel->state().is<ScannerState::Scanning>(); }));
    auto scanning = browser->rowMenu(grown);
    EXPECT_FALSE(actionNamed(*scanning, "Rescan This Folder")->isEnabled());
}

TEST_F(FinishedTreeWindowTest, ListOneFolderAtATimeIsACheckableSettingOfCloudAccounts) {
    script("photos");
    makeViewModel();
    refresh();
    makeWindow();
    AccountSidebar* sidebar = window->sidebar();
    const ProviderRef cloud = providerNamed("photos");
    ProviderRef local;
    for (const auto& provider : viewModel->providers()) {
        if (provider->rcloneType() == "local") {
            local = provider;
        }
    }
    ASSERT_NE(local, nullptr);
    EXPECT_FALSE(sidebar->contextActionsFor(local).contains("List One Folder at a Time"));
    auto localMenu = sidebar->contextMenuFor(local);
    EXPECT_EQ(actionNamed(*localMenu, "List One Folder at a Time"), nullptr);

    auto menu = sidebar->contextMenuFor(cloud);
    QAction* item = actionNamed(*menu, "List One Folder at a Time");
    ASSERT_NE(item, nullptr);
    EXPECT_TRUE(item->isCheckable());
    EXPECT_FALSE(item->isChecked());
    EXPECT_EQ(item->toolTip(),
              "For providers that limit recursive listings: slower, one request per folder.");
    EXPECT_EQ(item->statusTip(), item->toolTip());
    item->trigger();
    EXPECT_TRUE(viewModel->listsOneFolderAtATime("photos"));
    // A menu made later reads the setting; unchecking turns it off.
    auto later = sidebar->contextMenuFor(cloud);
    QAction* again = actionNamed(*later, "List One Folder at a Time");
    EXPECT_TRUE(again->isChecked());
    again->trigger();
    EXPECT_FALSE(viewModel->listsOneFolderAtATime("photos"));
    // Another account's setting is its own.
    script("music");
    refresh();
    EXPECT_FALSE(viewModel->listsOneFolderAtATime("music"));
}

} // namespace
} // namespace brimvale
