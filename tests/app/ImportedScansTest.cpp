#include "app/ImportedScanController.h"
#include "app/MainWindow.h"
#include "app/browser/ColumnBrowser.h"
#include "app/sidebar/AccountSidebar.h"
#include "app/sidebar/ImportedScansList.h"
#include "app/sidebar/SidebarModel.h"
#include "app/support/WidgetText.h"
#include "app/views/TreePage.h"
#include "core/interchange/NcduExportFile.h"
#include "tests/app/AppTestSupport.h"
#include "tests/support/TreeBuilders.h"

#include <QAction>
#include <QListView>
#include <QListWidget>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::file;
using testing::finished;
using testing::folder;
using testing::pumpUntil;
using testing::ScriptedProvider;

const std::string kServerExport =
    "[1,2,{\"progname\":\"gdu\",\"progver\":\"5.22.0\",\"timestamp\":1700000000},\n"
    "[{\"name\":\"/srv\"},{\"name\":\"db.img\",\"asize\":9000000,\"dsize\":9003008},\n"
    "[{\"name\":\"logs\"},{\"name\":\"a.log\",\"asize\":10,\"dsize\":4096}]]]\n";

class ImportedScansTest : public testing::AppTest {
protected:
    void SetUp() override {
        photos = script("photos");
        makeViewModel();
        refresh();
        window = std::make_unique<MainWindow>(*viewModel,
                                              MainWindow::Options{.refreshAccountsOnShow = false});
        window->importer()->reportError = [this](const QString&, const QString& message) {
            errors.push_back(message);
        };
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    void TearDown() override { window.reset(); }
    FileNodeRef shownRoot() const { return window->treePage()->browser()->state().root(); }
    std::string path(const char* name) const { return scratch.path().toStdString() + "/" + name; }

    std::shared_ptr<ScriptedProvider> photos;
    std::unique_ptr<MainWindow> window;
    QStringList errors;
    QTemporaryDir scratch;
};

TEST_F(ImportedScansTest, AnOpenedExportShowsBesideTheAccountsUntilClosedAndExportsAgain) {
    // The account's finished scan is on screen first.
    SidebarModel* rows = window->sidebar()->model();
    const QModelIndex photosRow = rows->index(rows->rowOf("photos"));
    window->sidebar()->list()->setCurrentIndex(photosRow);
    ASSERT_TRUE(photos->waitForScans(1));
    const FileNodeRef photosTree = finished(folder("photos", {file("cat.jpg", 5000)}));
    photos->push(ScriptedProvider::Finish{photosTree});
    ASSERT_TRUE(pumpUntil([this] { return viewModel->state().is<ScannerState::Done>(); }));
    EXPECT_FALSE(window->importedScans()->isVisible()) << "no row until a scan is opened";

    // A damaged file is reported and adds nothing.
    std::ofstream(path("cut.json"), std::ios::binary) << kServerExport.substr(0, 90);
    EXPECT_FALSE(window->importer()->openFile(QString::fromStdString(path("cut.json"))));
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.front().contains(QStringLiteral("at byte"))) << errors.front().toStdString();
    EXPECT_FALSE(window->importedScans()->isVisible());

    std::ofstream(path("server.json"), std::ios::binary) << kServerExport;
    ASSERT_TRUE(window->importer()->openFile(QString::fromStdString(path("server.json"))));
    QListWidget* imported = window->importedScans()->list();
    ASSERT_EQ(imported->count(), 1);
    EXPECT_TRUE(
        imported->item(0)->text().startsWith(QStringLiteral("Imported: server.json, 2023-11-1")));
    ASSERT_TRUE(pumpUntil([this] { return shownRoot() && shownRoot()->name() == "/srv"; }));
    EXPECT_EQ(shownRoot()->size(), 9003008 + 4096);
    EXPECT_EQ(window->detail()->currentWidget(), window->treePage());

    // The account rescanning in the background does not take the page from the opened scan.
    photos->push(ScriptedProvider::Finish{photosTree});
    QTest::qWait(50);
    EXPECT_EQ(shownRoot()->name(), "/srv");

    // Export Scan writes what is shown: the opened scan (to a file name that is not UTF-8), then
    // the account again.
    ASSERT_TRUE(window->importer()->exportTo(qtPathText(path("again\xE9.json"))));
    const ImportedScan again = readNcduExportFile(path("again\xE9.json"));
    std::filesystem::remove(path("again\xE9.json")); // QTemporaryDir cannot name it
    EXPECT_EQ(again.root->size(), 9003008 + 4096);
    EXPECT_EQ(again.exportDate->unixSeconds(), 1700000000);

    emit window->sidebar()->list()->clicked(photosRow);
    ASSERT_TRUE(pumpUntil([this] { return shownRoot() && shownRoot()->name() == "photos"; }));
    EXPECT_EQ(imported->currentRow(), -1);
    ASSERT_TRUE(window->importer()->exportTo(QString::fromStdString(path("photos.json"))));
    const ImportedScan photosExport = readNcduExportFile(path("photos.json"));
    EXPECT_EQ(photosExport.root->name(), "photos:");
    EXPECT_EQ(photosExport.root->size(), 5000);
    EXPECT_FALSE(window->importer()->exportTo(QString::fromStdString(path("no/such/x.json"))));
    EXPECT_EQ(errors.size(), 2);

    // Selecting the row shows it again; closing it goes back to the account and hides the list.
    imported->setCurrentRow(0);
    ASSERT_TRUE(pumpUntil([this] { return shownRoot()->name() == "/srv"; }));
    window->importedScans()->closeButton()->click();
    ASSERT_TRUE(pumpUntil([this] { return shownRoot()->name() == "photos"; }));
    EXPECT_FALSE(window->importedScans()->isVisible());
}

} // namespace
} // namespace brimvale
