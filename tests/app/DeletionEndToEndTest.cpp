// Deleting from the columns as a user does: several rows picked, the row menu, the question,
// the tree and the disk afterwards.
#include "app/MainWindow.h"
#include "app/bridge/QtMainQueue.h"
#include "app/browser/ColumnBrowser.h"
#include "app/browser/ColumnItemsModel.h"
#include "app/browser/ColumnListView.h"
#include "app/browser/DeletionActions.h"
#include "app/views/TreePage.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/support/InMemorySettingsStore.h"
#include "tests/app/AppTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

#include <filesystem>

namespace brimvale {
namespace {

using namespace std::chrono_literals;

QAction* actionNamed(QMenu& menu, const QString& text) {
    for (QAction* action : menu.actions()) {
        if (action->text() == text) {
            return action;
        }
    }
    return nullptr;
}

void saveScreen(QWidget& widget, const QString& name) {
    QDir().mkpath(BRIMVALE_SCREENSHOT_DIR);
    const QString path = QString(BRIMVALE_SCREENSHOT_DIR) + "/" + name + ".png";
    if (QGuiApplication::platformName() == "xcb") {
        const QRect frame = widget.frameGeometry().adjusted(-8, -8, 8, 8);
        EXPECT_TRUE(widget.screen()->grabWindow(0).copy(frame).save(path));
    } else {
        EXPECT_TRUE(widget.grab().save(path));
    }
}

TEST(ApplicationEndToEnd, DeleteSeveralRowsPermanentlyFromTheColumns) {
    testing::RcloneSandbox sandbox;
    testing::TemporaryFolder cache;
    testing::TemporaryTree fixture;
    fixture.file("big.bin", 3'000'000);
    fixture.file("old/a.bin", 1'000'000);
    fixture.file("old/b.bin", 500'000);
    fixture.file("keep.txt", 1'000);
    sandbox.addRemote("disk", "local");

    QtMainQueue queue;
    ScannerViewModel viewModel({.mainQueue = &queue,
                                .settings = std::make_shared<InMemorySettingsStore>(),
                                .cacheDirectory = cache.path().string(),
                                .runner = sandbox.realRunner()});
    MainWindow window(viewModel, {});
    window.resize(1280, 800);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    ASSERT_TRUE(testing::pumpUntil([&] { return viewModel.provider("disk") != nullptr; }));
    viewModel.openAccount(viewModel.provider("disk"), {.localScanPath = fixture.root()});
    ASSERT_TRUE(testing::pumpUntil([&] { return viewModel.state().is<ScannerState::Done>(); }));
    const FileNodeRef root = viewModel.state().shownTree();
    ASSERT_EQ(root->children().size(), 3u);

    // A click and a Ctrl-click pick the two largest rows of the first column.
    ColumnBrowser* browser = window.treePage()->browser();
    ColumnListView* first = browser->columnView(0);
    ASSERT_TRUE(testing::pumpUntil([&] { return first->isVisible(); }));
    for (int row : {0, 1}) {
        QTest::mouseClick(first->viewport(), Qt::LeftButton,
                          row == 0 ? Qt::NoModifier : Qt::ControlModifier,
                          first->visualRect(browser->columnModel(0)->index(row)).center());
    }
    ASSERT_EQ(first->selectionModel()->selectedRows().size(), 2);
    std::vector<FileNodeRef> picked{root->children()[0], root->children()[1]};
    auto menu = browser->rowMenu(picked[0], picked);
    EXPECT_NE(actionNamed(*menu, "Move to Trash (2 Items)"), nullptr);
    EXPECT_EQ(actionNamed(*menu, "Delete\u2026 (2 Items)"), nullptr) << "cloud accounts only";
    QAction* permanent = actionNamed(*menu, "Delete Permanently\u2026 (2 Items)");
    ASSERT_NE(permanent, nullptr);
    ASSERT_TRUE(permanent->isEnabled());

    QString question;
    bool answered = false;
    const auto answer = [&] {
        auto* dialog = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (dialog == nullptr) {
            return false;
        }
        question = dialog->text();
        QTest::qWait(100);
        saveScreen(*dialog, "delete-permanently-question");
        dialog->findChild<QPushButton*>("confirmDeletion")->click();
        answered = true;
        return true;
    };
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (!answered && answer()) {
            poll.stop();
        }
    });
    poll.start(20);
    permanent->trigger();
    ASSERT_TRUE(testing::pumpUntil([&] {
        return answered && root->children().size() == 1 && !viewModel.itemDeletion("disk")->running;
    }));
    EXPECT_EQ(question.toStdString(),
              "Delete 2 items (4.5 MB, 4 items in all) permanently? This cannot be undone.");
    EXPECT_FALSE(std::filesystem::exists(fixture.location("big.bin")));
    EXPECT_FALSE(std::filesystem::exists(fixture.location("old")));
    EXPECT_EQ(root->children()[0]->name(), "keep.txt");
    EXPECT_EQ(root->size(), root->children()[0]->size());
    ASSERT_TRUE(testing::pumpUntil([&] { return browser->columnModel(0)->visibleCount() == 1; }));
    QTest::qWait(100);
    saveScreen(window, "deleted-rows");
    viewModel.waitForSavedScans(10s);

    // What a cloud account's question looks like.
    const auto cloud = deletionConfirmation(&window, DeletionMethod::deleteFromCloud,
                                            {{.location = "work:Backups/2019",
                                              .isDirectory = true,
                                              .size = 48'000'000'000,
                                              .itemCount = 120'344}},
                                            "Work Drive", "drive");
    cloud->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(cloud.get()));
    QTest::qWait(100);
    saveScreen(*cloud, "delete-from-cloud-question");
    EXPECT_NE(cloud->informativeText().indexOf("keeps deleted items in its trash"), -1);
    cloud->reject();
}

} // namespace
} // namespace brimvale
