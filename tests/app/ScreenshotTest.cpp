#include "app/MainWindow.h"
#include "app/banner/LiveScanProgressBanner.h"
#include "app/browser/ColumnBrowser.h"
#include "app/browser/ColumnItemsModel.h"
#include "app/browser/ColumnListView.h"
#include "app/browser/ColumnRowDelegate.h"
#include "app/browser/PreviewPanel.h"
#include "app/onboarding/AddAccountSheet.h"
#include "app/onboarding/GeneratedBackendForm.h"
#include "app/sidebar/AccountSidebar.h"
#include "app/sidebar/SidebarModel.h"
#include "app/support/ReadableSecondaryText.h"
#include "app/views/CacheBadge.h"
#include "app/views/TreePage.h"
#include "tests/app/AppTestSupport.h"
#include "tests/app/VisibleTextChecks.h"
#include "tests/support/TreeBuilders.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QTest>
#include <gtest/gtest.h>

// Rectangles in failure messages as a person reads them.
void PrintTo(const QRect& rect, std::ostream* out) {
    *out << rect.x() << "," << rect.y() << " " << rect.width() << "x" << rect.height();
}

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::file;
using testing::folder;
using testing::pumpUntil;
using testing::ScriptedProvider;

// A dark desktop theme as some ship it: its placeholder colour, which the application's
// secondary texts use, is meant for empty fields and is barely readable (about 1.2:1).
QPalette darkTheme() {
    return testing::darkPalette(QColor(0x3c, 0x3c, 0x40), QColor(0x23, 0x63, 0xa8));
}

enum class Scheme { light, dark };

// The scale the program runs at (QT_SCALE_FACTOR, which CTest sets for a second run), in the
// screenshots' names.
QString scaleName() {
    return QString::number(qApp->devicePixelRatio()) + "x";
}

// What a person sees of the main window in each state of a session (a saved scan opened, a scan
// running, the scan stopped, an account added through a generated form), in a light and a dark
// scheme: every picture is saved under build/<preset>/screenshots/ and checked by program.
class Screenshots : public testing::AppTest, public ::testing::WithParamInterface<Scheme> {
protected:
    void SetUp() override {
        static const QPalette light = QApplication::palette();
        lightPalette_ = light;
        // As the application does at start-up: secondary text made readable in every scheme.
        static const bool readable = [] {
            app::keepSecondaryTextReadable(*qApp);
            return true;
        }();
        (void)readable;
        QApplication::setPalette(GetParam() == Scheme::dark ? darkTheme() : light);
    }
    void TearDown() override {
        window.reset();
        QApplication::setPalette(lightPalette_);
    }
    QString schemeName() const { return GetParam() == Scheme::dark ? "dark" : "light"; }

    // Saves `widget`'s picture and checks what any state must satisfy: no text clipped, no
    // tooltip that only repeats, every text role readable, nothing outside the window, the
    // window inside its screen's room.
    void look(QWidget& widget, const QString& state) {
        testing::pumpFor(80ms);
        QDir().mkpath(BRIMVALE_SCREENSHOT_DIR);
        const QString path = QStringLiteral("%1/look-%2-%3-%4.png")
                                 .arg(BRIMVALE_SCREENSHOT_DIR, state, schemeName(), scaleName());
        EXPECT_TRUE(widget.grab().save(path)) << path.toStdString();
        const std::string where = (state + " " + schemeName() + " " + scaleName()).toStdString();
        EXPECT_EQ(testing::clippedLabels(widget).join("; ").toStdString(), "") << where;
        EXPECT_EQ(testing::repeatedToolTips(widget).join("; ").toStdString(), "") << where;
        EXPECT_EQ(testing::unreadableTextRoles(widget.palette()).join("; ").toStdString(), "")
            << where;
        EXPECT_EQ(testing::widgetsOutside(widget).join("; ").toStdString(), "") << where;
        const QRect room = widget.screen()->availableGeometry();
        EXPECT_TRUE(room.contains(widget.frameGeometry()))
            << where << ": " << widget.frameGeometry().width() << "x"
            << widget.frameGeometry().height() << " on " << room.width() << "x" << room.height();
    }

    // The rows of the first column whose item has a share of its folder but no bar drawn for
    // it (the selected row is drawn differently and left out).
    QStringList rowsWithoutShareBar() const {
        ColumnListView* view = window->treePage()->browser()->columnView(0);
        ColumnItemsModel* model = window->treePage()->browser()->columnModel(0);
        const QImage image = view->viewport()->grab().toImage();
        const double ratio = image.devicePixelRatio();
        const QColor accent = view->palette().color(QPalette::Active, QPalette::Highlight);
        QStringList missing;
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex index = model->index(row);
            const auto* node = reinterpret_cast<const FileNode*>(
                index.data(ColumnItemsModel::NodeRole).value<quintptr>());
            const QRect rect = view->visualRect(index);
            if (node == nullptr || node->parent() == nullptr || node->parent()->size() == 0 ||
                node->size() * 50 < node->parent()->size() ||
                view->selectionModel()->isSelected(index) ||
                !view->viewport()->rect().contains(rect)) {
                continue;
            }
            // The bar sits left of the disclosure chevron; its filled part starts at its left.
            const int barLeft = rect.right() + 1 - ColumnRowDelegate::kRowPadding -
                                ColumnRowDelegate::kChevronSize - 6 - ColumnRowDelegate::kBarWidth;
            int accentPixels = 0;
            for (int x = barLeft; x < barLeft + ColumnRowDelegate::kBarWidth; ++x) {
                for (int y = rect.center().y() - 2; y <= rect.center().y() + 2; ++y) {
                    const QColor pixel = image.pixelColor(static_cast<int>(x * ratio + 0.5),
                                                          static_cast<int>(y * ratio + 0.5));
                    accentPixels += std::abs(pixel.red() - accent.red()) < 24 &&
                                    std::abs(pixel.green() - accent.green()) < 24 &&
                                    std::abs(pixel.blue() - accent.blue()) < 24;
                }
            }
            if (accentPixels == 0) {
                missing << QString::fromUtf8(node->name().data(),
                                             static_cast<qsizetype>(node->name().size()));
            }
        }
        return missing;
    }

    void makeWindow() {
        window = std::make_unique<MainWindow>(*viewModel,
                                              MainWindow::Options{.refreshAccountsOnShow = false});
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    void reopenCoordinator() {
        viewModel->cancelAllWork();
        pumpUntil([this] { return !viewModel->hasBackgroundWork(); }, 10s);
        ASSERT_TRUE(viewModel->waitForSavedScans(10s));
        viewModel.reset();
        makeViewModel();
        refresh();
    }
    ScanProgress listing(const std::string& path, std::int64_t files) {
        return {.stage = Stage::listing(path),
                .filesScanned = files,
                .foldersScanned = files / 10,
                .bytesAccountedFor = files * 4096};
    }

    QPalette lightPalette_;
    std::unique_ptr<MainWindow> window;
};

TEST_P(Screenshots, SavedScanScanStopAndGeneratedForm) {
    auto photos = script("photos");
    makeViewModel();
    refresh();
    // A first scan, saved; the next session opens it from the saved scan.
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    std::vector<FileNodeRef> albums;
    for (int album = 0; album < 12; ++album) {
        albums.push_back(
            folder("album " + std::to_string(album), {file("cover.jpg", 40'000 * (album + 1)),
                                                      file("raw.dng", 900'000 * (album + 1))}));
    }
    albums.push_back(file("archive.zip", 30'000'000));
    const FileNodeRef tree = testing::finished(folder("photos", std::move(albums)));
    photos->push(ScriptedProvider::Finish{tree});
    ASSERT_TRUE(pumpUntil([this] { return viewModel->state().is<ScannerState::Done>(); }));
    reopenCoordinator();
    makeWindow();

    // The saved scan: share bars drawn, its age in the status line below the rows.
    SidebarModel* rows = window->sidebar()->model();
    window->sidebar()->list()->setCurrentIndex(rows->index(rows->rowOf("photos")));
    ASSERT_TRUE(pumpUntil([this] {
        const auto* done = viewModel->state().as<ScannerState::Done>();
        return done != nullptr && window->treePage()->cacheBadge()->isVisible() &&
               window->treePage()->browser()->columnCount() > 0;
    }));
    TreePage* page = window->treePage();
    look(*window, "saved-scan");
    EXPECT_EQ(rowsWithoutShareBar().join("; ").toStdString(), "");
    ColumnListView* first = page->browser()->columnView(0);
    const QRect rowsArea(first->viewport()->mapTo(window.get(), QPoint(0, 0)),
                         first->viewport()->size());
    const QRect badgeArea(page->cacheBadge()->mapTo(window.get(), QPoint(0, 0)),
                          page->cacheBadge()->size());
    EXPECT_FALSE(rowsArea.intersects(badgeArea));

    // A scan: the banner over the columns holds still while the path it shows changes; the
    // preview does not show an item of the tree before.
    window->rescanAction()->trigger();
    ASSERT_TRUE(photos->waitForScans(2));
    photos->push(ScriptedProvider::Progress{listing("/photos/album 1", 20)});
    photos->push(ScriptedProvider::PartialTree{tree});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(0ms); }));
    QTest::qWait(150);
    photos->push(ScriptedProvider::Progress{listing("/a", 30)});
    LiveScanProgressBanner* banner = page->banner();
    ASSERT_TRUE(
        pumpUntil([&] { return banner->isVisible() && banner->progress().filesScanned == 30; }));
    look(*window, "scanning");
    EXPECT_FALSE(page->browser()->previewPanel()->isVisible());
    const auto stopPlace = [&] {
        return QRect(banner->stopButton()->mapTo(window.get(), QPoint(0, 0)),
                     banner->stopButton()->size());
    };
    const QRect before = stopPlace();
    const QRect bannerBefore = banner->geometry();
    const std::string longPath = "/photos/" + std::string(40, 'x') + "/a folder with a long name/" +
                                 std::string(60, 'y') + "/IMG_0001.dng";
    QTest::qWait(150);
    photos->push(ScriptedProvider::Progress{listing(longPath, 900)});
    ASSERT_TRUE(pumpUntil([&] { return banner->progress().filesScanned == 900; }));
    look(*window, "scanning-long-path");
    EXPECT_EQ(stopPlace(), before);
    EXPECT_EQ(banner->geometry(), bannerBefore);

    // Stopped.
    window->stopAction()->trigger();
    ASSERT_TRUE(pumpUntil([this] { return !viewModel->state().is<ScannerState::Scanning>(); }));
    look(*window, "stopped");

    // A backend without a form of ours: found by search, its form made from rclone's description.
    window->addAccountAction()->trigger();
    AddAccountSheet* sheet = window->addAccountSheet();
    ASSERT_NE(sheet, nullptr);
    ASSERT_TRUE(pumpUntil([this] { return viewModel->rcloneBackends() != nullptr; }));
    sheet->searchField()->setText("webdav");
    look(*sheet, "add-account-search");
    QTest::keyClick(sheet->searchField(), Qt::Key_Return);
    ASSERT_NE(sheet->generatedForm(), nullptr);
    look(*sheet, "add-account-webdav");
    sheet->reject();
    ASSERT_TRUE(pumpUntil([this] { return window->addAccountSheet() == nullptr; }));
}

// The checks themselves: a date squeezed into its label is clipped, a small font's label at its
// own size is not; a widget past the window's edge is outside, content scrolled out of a
// scroll area's view is not; a translucent secondary text is measured as drawn.
TEST(ScreenshotChecks, FindClippedTextWidgetsOutsideAndFaintText) {
    QWidget root;
    root.resize(300, 200);
    auto* squeezed = new QLabel("Cached 32 seconds ago", &root);
    squeezed->setGeometry(0, 0, 60, 20);
    auto* small = new QLabel("Accounts", &root);
    QFont font = small->font();
    font.setPointSizeF(std::max(7.0, font.pointSizeF() - 1.0));
    small->setFont(font);
    small->setGeometry(QRect(QPoint(0, 40), small->sizeHint()));
    auto* past = new QWidget(&root);
    past->setGeometry(280, 100, 40, 20);
    auto* area = new QScrollArea(&root);
    area->setGeometry(0, 130, 100, 60);
    auto* content = new QWidget;
    content->resize(400, 400);
    area->setWidget(content);
    root.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&root));
    const QStringList clipped = testing::clippedLabels(root);
    ASSERT_EQ(clipped.size(), 1) << clipped.join("; ").toStdString();
    EXPECT_TRUE(clipped.front().startsWith("Cached 32 seconds ago"));
    const QStringList outside = testing::widgetsOutside(root);
    ASSERT_EQ(outside.size(), 1) << outside.join("; ").toStdString();
    EXPECT_TRUE(outside.front().startsWith("QWidget  at 280,100")) << outside.front().toStdString();

    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0xef, 0xef, 0xef));
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(0, 0, 0, 128));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Highlight, QColor(0x1d, 0x4e, 0x89));
    const QStringList faint = testing::unreadableTextRoles(palette);
    EXPECT_TRUE(faint.filter("PlaceholderText on Window (active)").size() == 1 &&
                faint.filter("PlaceholderText on Base (active)").size() == 1 &&
                faint.filter("Highlight").isEmpty())
        << faint.join("; ").toStdString();
}

// Named for the pictures' file names and test filters.
std::string schemeTestName(const ::testing::TestParamInfo<Scheme>& scheme) {
    return scheme.param == Scheme::dark ? "Dark" : "Light";
}

INSTANTIATE_TEST_SUITE_P(Schemes, Screenshots, ::testing::Values(Scheme::light, Scheme::dark),
                         schemeTestName);

} // namespace
} // namespace brimvale
