#include "app/MainWindow.h"

#include "app/banner/LiveScanProgressBanner.h"
#include "app/browser/ColumnBrowser.h"
#include "app/sheets/LocalVolumeSheet.h"
#include "app/sidebar/AccountSidebar.h"
#include "app/sidebar/SidebarModel.h"
#include "app/support/AppSettingsKeys.h"
#include "app/support/ScreenFit.h"
#include "app/views/CacheBadge.h"
#include "app/views/ErrorView.h"
#include "app/views/IdleView.h"
#include "app/views/LoadingCacheView.h"
#include "app/views/NeedsSetupView.h"
#include "app/views/TreePage.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/rclone/BrimvaleError.h"
#include "tests/app/AppTestSupport.h"
#include "tests/support/TreeBuilders.h"

#include <QAction>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTest>
#include <gtest/gtest.h>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::file;
using testing::finished;
using testing::folder;
using testing::pumpUntil;
using testing::ScriptedProvider;

FileNodeRef smallTree(const std::string& name) {
    return finished(folder(name, {file("big.bin", 4'000'000), folder("sub", {file("s.txt", 7)})}));
}

class MainWindowTest : public testing::AppTest {
protected:
    void makeWindow(MainWindow::Options options = {.refreshAccountsOnShow = false}) {
        window = std::make_unique<MainWindow>(*viewModel, std::move(options));
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    void TearDown() override { window.reset(); }
    QWidget* shown() const { return window->detail()->currentWidget(); }
    bool showing(QWidget* page) const {
        return pumpUntil([this, page] { return shown() == page; }, 10s);
    }
    ProviderRef providerOfType(const std::string& type) const {
        for (const auto& provider : viewModel->providers()) {
            if (provider->rcloneType() == type) {
                return provider;
            }
        }
        return nullptr;
    }
    SidebarModel::Glance glance(const std::string& id) const {
        SidebarModel* model = window->sidebar()->model();
        return static_cast<SidebarModel::Glance>(
            model->data(model->index(model->rowOf(id)), SidebarModel::GlanceRole).toInt());
    }

    std::unique_ptr<MainWindow> window;
};

TEST_F(MainWindowTest, EachStateHasItsViewAndTheToolbarFollows) {
    auto photos = script("photos");
    makeViewModel();
    refresh();
    makeWindow();
    EXPECT_EQ(shown(), window->idleView());
    EXPECT_FALSE(window->rescanAction()->isEnabled());
    EXPECT_FALSE(window->stopAction()->isEnabled());
    EXPECT_FALSE(window->previewAction()->isEnabled());

    // Selecting the account in the sidebar starts its first scan.
    SidebarModel* rows = window->sidebar()->model();
    const int row = rows->rowOf("photos");
    ASSERT_GE(row, 0);
    window->sidebar()->list()->setCurrentIndex(rows->index(row));
    ASSERT_TRUE(photos->waitForScans(1));
    ASSERT_TRUE(pumpUntil([this] { return viewModel->state().is<ScannerState::Scanning>(); }));
    EXPECT_TRUE(window->stopAction()->isEnabled());
    EXPECT_FALSE(window->rescanAction()->isEnabled());
    EXPECT_EQ(glance("photos"), SidebarModel::Glance::busy);

    // Progress and a live tree: the banner over the browser.
    photos->push(ScriptedProvider::Progress{{.stage = Stage::listing("Listing"),
                                             .filesScanned = 10,
                                             .foldersScanned = 2,
                                             .bytesAccountedFor = 4000}});
    const FileNodeRef live = smallTree("photos");
    photos->push(ScriptedProvider::PartialTree{live});
    // Live updates are throttled: the next report after the interval brings the tree.
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(0ms); }));
    QTest::qWait(150);
    photos->push(ScriptedProvider::Progress{{.stage = Stage::listing("Listing"),
                                             .filesScanned = 11,
                                             .foldersScanned = 2,
                                             .bytesAccountedFor = 4000}});
    ASSERT_TRUE(showing(window->treePage()));
    ASSERT_TRUE(pumpUntil([this] { return window->treePage()->browser()->columnCount() > 0; }));
    EXPECT_TRUE(window->treePage()->banner()->isVisible());
    EXPECT_FALSE(window->treePage()->cacheBadge()->isVisible());
    EXPECT_TRUE(window->previewAction()->isEnabled());

    // Finished: the tree with its badge, no banner.
    photos->push(ScriptedProvider::Finish{live});
    ASSERT_TRUE(pumpUntil([this] { return viewModel->state().is<ScannerState::Done>(); }));
    EXPECT_EQ(shown(), window->treePage());
    EXPECT_FALSE(window->treePage()->banner()->isVisible());
    EXPECT_TRUE(window->treePage()->cacheBadge()->isVisible());
    // A cloud account has no occupied size: no drive symbol.
    EXPECT_FALSE(window->treePage()->cacheBadge()->driveSymbol()->isVisible());
    EXPECT_TRUE(window->rescanAction()->isEnabled());
    EXPECT_FALSE(window->stopAction()->isEnabled());
    ASSERT_TRUE(pumpUntil([this] { return glance("photos") == SidebarModel::Glance::size; }));

    // The preview toggle hides and shows the panel.
    window->previewAction()->trigger();
    EXPECT_FALSE(window->treePage()->browser()->previewPanelShown());
    window->previewAction()->trigger();
    EXPECT_TRUE(window->treePage()->browser()->previewPanelShown());

    // Rescan from the badge starts a second scan, seeded with the tree on screen.
    QTest::mouseClick(window->treePage()->cacheBadge()->rescanButton(), Qt::LeftButton);
    ASSERT_TRUE(photos->waitForScans(2));
    EXPECT_EQ(photos->seeds().back(), live);

    // Stop scan: back to idle, and the partial tree is kept.
    ASSERT_TRUE(pumpUntil([this] { return window->stopAction()->isEnabled(); }));
    window->stopAction()->trigger();
    EXPECT_EQ(shown(), window->idleView());
    EXPECT_TRUE(window->rescanAction()->isEnabled());
}

TEST_F(MainWindowTest, FailuresSetupAndLoadingHaveTheirViews) {
    auto broken = script("broken");
    auto unset = script("unset", "webdav");
    unset->configured = false;
    makeViewModel();
    refresh();
    makeWindow();

    viewModel->selectProvider(providerNamed("broken"));
    ASSERT_TRUE(broken->waitForScans(1));
    broken->push(ScriptedProvider::Fail{
        std::make_exception_ptr(BrimvaleError::scanFailed("broken", "permission denied"))});
    ASSERT_TRUE(showing(window->errorView()));
    EXPECT_EQ(window->errorView()->titleLabel()->text(), "Couldn’t load this account");
    EXPECT_FALSE(window->errorView()->textLabel()->text().isEmpty());
    EXPECT_EQ(glance("broken"), SidebarModel::Glance::warning);
    EXPECT_TRUE(window->rescanAction()->isEnabled());

    viewModel->selectProvider(providerNamed("unset"));
    ASSERT_TRUE(showing(window->needsSetupView()));
    EXPECT_EQ(window->needsSetupView()->titleLabel()->text(), "Scripted unset isn't connected");

    // A saved scan being read, as the decoder reports half of it.
    viewModel->applyPaneState(ScannerState::LoadingCache{"unset", 0.5}, "unset");
    ASSERT_TRUE(showing(window->loadingCacheView()));
    EXPECT_EQ(window->loadingCacheView()->targetPercent(), 50);
    QTRY_COMPARE_WITH_TIMEOUT(window->loadingCacheView()->textLabel()->text(),
                              QString("Loading saved scan — 50%"), 2000);
}

TEST_F(MainWindowTest, SidebarShowsPanesThatAreNotOnScreen) {
    script("shown");
    script("background");
    makeViewModel();
    refresh();
    makeWindow();
    viewModel->selectProvider(providerNamed("shown"));
    ASSERT_TRUE(scripted["shown"]->waitForScans(1));

    // Another account's pane finishes while "shown" is on screen.
    const FileNodeRef tree = smallTree("background");
    viewModel->applyPaneState(ScannerState::Done{tree, std::nullopt, std::nullopt}, "background");
    ASSERT_TRUE(pumpUntil([this] { return glance("background") == SidebarModel::Glance::size; }));
    SidebarModel* rows = window->sidebar()->model();
    EXPECT_EQ(
        rows->data(rows->index(rows->rowOf("background")), SidebarModel::GlanceTextRole).toString(),
        "4 MB");
    // The detail area still shows "shown" (its scan, without a tree yet).
    EXPECT_NE(window->treePage()->browser()->state().root(), tree);

    viewModel->applyPaneState(ScannerState::Error{{.message = "gone"}}, "background");
    EXPECT_EQ(glance("background"), SidebarModel::Glance::warning);
    // The pinned placeholders are listed although not configured.
    ASSERT_NE(providerOfType("local"), nullptr);
    ASSERT_NE(providerOfType("dropbox"), nullptr);
    EXPECT_GE(rows->rowOf(providerOfType("local")->remoteID()), 0);
    EXPECT_GE(rows->rowOf(providerOfType("dropbox")->remoteID()), 0);
}

TEST_F(MainWindowTest, RemovingAnAccountAsksFirstAndPlaceholdersCannotBeRemoved) {
    script("photos");
    makeViewModel();
    refresh();
    QStringList asked;
    bool answer = false;
    makeWindow(
        {.refreshAccountsOnShow = false, .confirmRemoval = [&](QWidget*, const QString& name) {
             asked << name;
             return answer;
         }});
    AccountSidebar* sidebar = window->sidebar();
    EXPECT_EQ(sidebar->contextActionsFor(providerNamed("photos")),
              (QStringList{"Rescan", "List One Folder at a Time",
                           "Remove Account…"})); // not an rclone adapter: no "another"
    ASSERT_NE(providerOfType("local"), nullptr);
    EXPECT_EQ(sidebar->contextActionsFor(providerOfType("local")), QStringList{"Rescan"});
    EXPECT_EQ(MainWindow::removalConfirmationText(),
              "This removes the saved connection and cached file list from this computer. You "
              "can add the account again using Add account in the toolbar.");

    emit sidebar->removeRequested(providerNamed("photos"));
    EXPECT_EQ(asked, QStringList{"Scripted photos"});
    pumpUntil([] { return false; }, 200ms);
    EXPECT_NE(providerNamed("photos"), nullptr); // declined: still there

    answer = true;
    emit sidebar->removeRequested(providerNamed("photos"));
    ASSERT_TRUE(pumpUntil([this] { return providerNamed("photos") == nullptr; }));
    EXPECT_EQ(sidebar->model()->rowOf("photos"), -1);
    EXPECT_EQ(testing::readFile(sandbox.configPath()).find("[photos]"), std::string::npos);
}

TEST_F(MainWindowTest, LocalPickerOpensWhenTheCoordinatorAsksAndScansTheChoice) {
    auto disk = script("mydisk", "local");
    makeViewModel();
    refresh();
    makeWindow();
    viewModel->selectProvider(providerNamed("mydisk"));
    EXPECT_TRUE(viewModel->showLocalVolumePicker());
    ASSERT_TRUE(pumpUntil([this] { return window->localVolumeSheet() != nullptr; }));
    LocalVolumeSheet* sheet = window->localVolumeSheet();
    ASSERT_TRUE(pumpUntil([sheet] { return sheet->choicesLoaded(); }));
    LocalVolumePickerOptions::Choice tmp{.id = "scan:/tmp",
                                         .title = "tmp",
                                         .pathLine = "(/tmp)",
                                         .scanPath = "/tmp",
                                         .totalBytes = 1'000'000'000,
                                         .freeBytes = 250'000'000};
    sheet->showChoices({tmp});
    ASSERT_EQ(sheet->list()->count(), 1);
    EXPECT_TRUE(sheet->scanButton()->isEnabled());
    QTest::mouseClick(sheet->scanButton(), Qt::LeftButton);
    ASSERT_TRUE(disk->waitForScans(1));
    EXPECT_EQ(disk->scannedPaths().front(), "/tmp");
    EXPECT_FALSE(viewModel->showLocalVolumePicker());
    EXPECT_EQ(settings->stringValue(SettingsKeys::localScanPath("mydisk")), "/tmp");

    // Cancelling the picker the coordinator opened tells it so: the pane goes idle.
    viewModel->cancelScan();
    viewModel->selectProvider(providerNamed("mydisk"));
    ASSERT_TRUE(pumpUntil([this] { return window->localVolumeSheet() != nullptr; }));
    window->localVolumeSheet()->reject();
    ASSERT_TRUE(pumpUntil([this] { return !viewModel->showLocalVolumePicker(); }));
    EXPECT_EQ(shown(), window->idleView());
}

TEST_F(MainWindowTest, WindowSizeAndSidebarWidthAreRemembered) {
    makeViewModel();
    refresh();
    makeWindow();
    window->resize(1000, 640);
    window->splitter()->setSizes({310, 690});
    QTest::qWait(20);
    window->close(); // saves
    EXPECT_TRUE(settings->contains(AppSettingsKeys::mainWindowGeometry));
    EXPECT_EQ(settings->stringValue(AppSettingsKeys::sidebarWidth), "310");
    window.reset();

    makeWindow();
    EXPECT_EQ(window->size(), QSize(1000, 640));
    EXPECT_EQ(window->splitter()->sizes().front(), 310);

    // Damaged values fall back to the defaults.
    window.reset();
    settings->setString(AppSettingsKeys::mainWindowGeometry, "not base64 geometry");
    settings->setString(AppSettingsKeys::sidebarWidth, "-4");
    makeWindow();
    EXPECT_EQ(window->size(), QSize(1180, 740));
    EXPECT_EQ(window->splitter()->sizes().front(), 230);

    // A 1280 x 800 screen at 1.5 times scale has 853 x 533 logical pixels, less a panel: the
    // default size and a size saved on a larger screen shrink into it and move onto it.
    const QRect screen(0, 0, 853, 533 - 32);
    EXPECT_EQ(app::fittedWithin(QRect(40, 30, 1180, 740), screen), screen);
    EXPECT_EQ(app::fittedWithin(QRect(700, 400, 400, 300), screen), QRect(453, 201, 400, 300));
    EXPECT_EQ(app::fittedWithin(QRect(-50, -20, 400, 300), screen), QRect(0, 0, 400, 300));
    const QRect second(1920, 0, 1280, 1024); // a second screen to the right
    EXPECT_EQ(app::fittedWithin(QRect(2000, 100, 1000, 700), second), QRect(2000, 100, 1000, 700));
}

} // namespace
} // namespace brimvale
