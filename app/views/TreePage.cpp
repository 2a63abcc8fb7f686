#include "app/views/TreePage.h"

#include "app/banner/LiveScanProgressBanner.h"
#include "app/browser/ColumnBrowser.h"
#include "app/insights/OverviewPanel.h"
#include "app/insights/TreemapView.h"
#include "app/support/BusyIndicator.h"
#include "app/support/WidgetText.h"
#include "app/views/CacheBadge.h"
#include "app/views/FolderRefreshBadge.h"
#include "app/views/FullDiskAccessBadge.h"
#include "app/views/ScanChangesBar.h"
#include "app/views/SkippedFoldersBadge.h"
#include "core/coordinator/ScannerViewModel.h"

#include <QAction>
#include <QButtonGroup>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QStackedLayout>
#include <QToolButton>
#include <QVBoxLayout>

namespace brimvale {

namespace {
constexpr int kBadgeMargin = 12;
}

TreePage::TreePage(ScannerViewModel& viewModel, QWidget* parent)
    : QWidget(parent)
    , viewModel_(viewModel) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    // Columns or map: one tree, one selection, two ways of looking at it.
    auto* viewBar = new QWidget(this);
    viewBar->setObjectName(QStringLiteral("treeViewBar"));
    auto* viewLine = new QHBoxLayout(viewBar);
    viewLine->setContentsMargins(kBadgeMargin, 4, kBadgeMargin, 4);
    viewLine->setSpacing(0);
    columnsButton_ = new QToolButton(viewBar);
    columnsButton_->setText(tr("Columns"));
    columnsButton_->setToolTip(tr("Show the folders as columns (Ctrl+1)"));
    columnsButton_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_1));
    mapButton_ = new QToolButton(viewBar);
    mapButton_->setText(tr("Map"));
    mapButton_->setToolTip(
        tr("Show the whole folder as a map of rectangles sized by space (Ctrl+2)"));
    mapButton_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_2));
    auto* viewGroup = new QButtonGroup(viewBar);
    for (QToolButton* button : {columnsButton_, mapButton_}) {
        button->setCheckable(true);
        button->setAutoRaise(true);
        viewGroup->addButton(button);
        viewLine->addWidget(button);
    }
    columnsButton_->setChecked(true);
    viewLine->addStretch(1);
    largestButton_ = new QToolButton(viewBar);
    largestButton_->setText(tr("Largest Files"));
    largestButton_->setToolTip(tr("The largest files anywhere in the scan"));
    typesButton_ = new QToolButton(viewBar);
    typesButton_->setText(tr("Types"));
    typesButton_->setToolTip(tr("The space taken by each kind of file and extension"));
    for (QToolButton* button : {largestButton_, typesButton_}) {
        button->setCheckable(true);
        button->setAutoRaise(true);
        viewLine->addWidget(button);
    }
    viewLine->addSpacing(8);
    searchField_ = new QLineEdit(viewBar);
    searchField_->setPlaceholderText(tr("Search names (Ctrl+F)"));
    searchField_->setToolTip(tr("Part of a name, or a pattern such as *.iso or IMG_20??_*"));
    searchField_->setClearButtonEnabled(true);
    searchField_->setFixedWidth(240);
    viewLine->addWidget(searchField_);
    searchField_->installEventFilter(this);
    auto* findShortcut = new QAction(this);
    findShortcut->setShortcut(QKeySequence::Find);
    addAction(findShortcut);
    connect(findShortcut, &QAction::triggered, this, [this] {
        searchField_->setFocus();
        searchField_->selectAll();
    });
    layout->addWidget(viewBar);
    connect(mapButton_, &QToolButton::toggled, this, &TreePage::setMapShown);
    connect(largestButton_, &QToolButton::toggled, this, [this](bool on) {
        if (on) {
            typesButton_->setChecked(false);
        }
        showOverview();
    });
    connect(typesButton_, &QToolButton::toggled, this, [this](bool on) {
        if (on) {
            largestButton_->setChecked(false);
        }
        showOverview();
    });
    connect(searchField_, &QLineEdit::textChanged, this, [this] { showOverview(); });

    changesBar_ = new ScanChangesBar(this);
    layout->addWidget(changesBar_);
    auto* body = new QWidget(this);
    auto* bodyLine = new QHBoxLayout(body);
    bodyLine->setContentsMargins(0, 0, 0, 0);
    bodyLine->setSpacing(0);
    browser_ = new ColumnBrowser(viewModel, body);
    bodyLine->addWidget(browser_, 1);
    treemap_ = new TreemapView(body);
    bodyLine->addWidget(treemap_, 1);
    treemap_->hide();
    overview_ = new OverviewPanel(body);
    bodyLine->addWidget(overview_);
    overview_->hide();
    layout->addWidget(body, 1);
    connect(overview_, &OverviewPanel::itemPicked, this,
            [this](const FileNodeRef& node) { browser_->selectPath(node); });
    connect(overview_, &OverviewPanel::closeRequested, this, [this] {
        largestButton_->setChecked(false);
        typesButton_->setChecked(false);
        searchField_->clear();
        showOverview();
    });
    connect(treemap_, &TreemapView::itemPicked, this,
            [this](const FileNodeRef& node) { browser_->selectPath(node); });
    connect(browser_, &ColumnBrowser::pathChanged, this, [this] {
        const FileNodeRef selected = browser_->state().deepestSelection();
        treemap_->setHighlighted(selected);
        FileNodeRef folder = selected;
        if (folder && !folder->isDirectory() && folder->parent() != nullptr) {
            folder = FileNodeRef(folder->parent());
        }
        overview_->setSelectedFolder(folder);
    });
    saveWait_ = new QTimer(this);
    saveWait_->setInterval(200);
    connect(saveWait_, &QTimer::timeout, this, &TreePage::compareWhenSaved);
    connect(changesBar_, &ScanChangesBar::changesChanged, this,
            [this](std::shared_ptr<const ChangeIndex> changes, bool sortByChange) {
                browser_->setChanges(std::move(changes), sortByChange);
            });

    scanningPlaceholder_ = new QWidget(this);
    auto* placeholderLayout = new QVBoxLayout(scanningPlaceholder_);
    placeholderLayout->addStretch(1);
    auto* spinner = new BusyIndicator(28, scanningPlaceholder_);
    placeholderLayout->addWidget(spinner, 0, Qt::AlignHCenter);
    auto* scanningText = new QLabel(tr("Scanning…"), scanningPlaceholder_);
    scanningText->setAlignment(Qt::AlignHCenter);
    placeholderLayout->addWidget(scanningText);
    placeholderLayout->addStretch(2);
    layout->addWidget(scanningPlaceholder_);
    scanningPlaceholder_->hide();

    banner_ = new LiveScanProgressBanner(this);
    banner_->hide();
    connect(banner_, &LiveScanProgressBanner::stopRequested, this, &TreePage::stopScanRequested);

    // The pane's status line, below the columns (never over their rows): a folder being
    // rescanned and the unreadable folders on the left, the saved scan and permissions on the
    // right. It takes room only while something is shown.
    badges_ = new QWidget(this);
    badges_->setObjectName(QStringLiteral("treeStatusLine"));
    auto* line = new QHBoxLayout(badges_);
    line->setContentsMargins(kBadgeMargin, 6, kBadgeMargin, 6);
    line->setSpacing(8);
    refreshBadge_ = new FolderRefreshBadge(badges_);
    line->addWidget(refreshBadge_);
    skippedBadge_ = new SkippedFoldersBadge(badges_);
    line->addWidget(skippedBadge_);
    line->addStretch(1);
    cacheBadge_ = new CacheBadge(badges_);
    accessBadge_ = new FullDiskAccessBadge(badges_);
    line->addWidget(cacheBadge_);
    line->addWidget(accessBadge_);
    layout->addWidget(badges_);
    refreshBadge_->hide();
    skippedBadge_->hide();
    badges_->hide();
    connect(skippedBadge_, &SkippedFoldersBadge::listRequested, this,
            &TreePage::showSkippedFolders);
    connect(skippedBadge_, &SkippedFoldersBadge::dismissRequested, this, [this] {
        skippedDismissed_ = true;
        skippedBadge_->hide();
        placeBadges();
    });
    connect(refreshBadge_, &FolderRefreshBadge::dismissRequested, this, [this] {
        dismissedRefreshError_ = refreshBadge_->detailLabel()->text();
        refreshBadge_->hide();
        placeBadges();
    });
    connect(cacheBadge_, &CacheBadge::rescanRequested, this, &TreePage::rescanRequested);
    connect(cacheBadge_, &CacheBadge::dismissRequested, this, [this] {
        cacheBadgeDismissed_ = true;
        cacheBadge_->hide();
        placeBadges();
    });
    connect(accessBadge_, &FullDiskAccessBadge::dismissRequested, this, [this] {
        advisoryDismissed_ = true;
        accessBadge_->hide();
        placeBadges();
    });
    connect(accessBadge_, &FullDiskAccessBadge::learnMoreRequested, this, [this] {
        QMessageBox::information(this, tr("Some folders need more permissions"),
                                 FullDiskAccessBadge::explanation());
    });
}

void TreePage::showScanning(const ScanProgress& progress, const FileNodeRef& liveRoot,
                            bool newScan) {
    isDone_ = false;
    doneRoot_ = nullptr;
    changesBar_->clear();
    saveWait_->stop();
    skippedFolders_.clear();
    badges_->hide();
    browser_->setPreviewHeldBack(true);
    showTreeViews(liveRoot != nullptr);
    scanningPlaceholder_->setVisible(liveRoot == nullptr);
    if (liveRoot) {
        browser_->setRoot(liveRoot);
        treemap_->setRoot(liveRoot);
        overview_->setTree(liveRoot);
        treemap_->setHighlighted(browser_->state().deepestSelection());
    }
    if (newScan) {
        banner_->startNewScan();
    }
    banner_->setProgress(progress);
    if (!banner_->isVisible()) {
        banner_->show();
        banner_->adjustSize();
    }
    banner_->raise();
}

void TreePage::showDone(DoneScan scan) {
    banner_->hide();
    scanningPlaceholder_->hide();
    browser_->setPreviewHeldBack(false);
    showTreeViews(true);
    const FileNodeRef& root = scan.root;
    if (root != doneRoot_) {
        // A new result: its badges show again, and it is compared with the scan before it.
        cacheBadgeDismissed_ = false;
        skippedDismissed_ = false;
        browser_->setRoot(root);
        changesBar_->clear();
        pendingHistoryKey_ = scan.partial ? std::nullopt : scan.historyKey;
        saveWaitTicks_ = 0;
        compareWhenSaved();
    } else if (scan.skippedFolders.size() != skippedFolders_.size()) {
        // A folder refresh of this tree found more.
        skippedDismissed_ = false;
    }
    if (scan.saveFailure && scan.saveFailure != saveFailure_) {
        // A save that failed is worth seeing even over a dismissed badge.
        cacheBadgeDismissed_ = false;
    }
    saveFailure_ = scan.saveFailure;
    isDone_ = true;
    doneRoot_ = root;
    browser_->setRoot(root);
    treemap_->setRoot(root);
    overview_->setTree(root);
    treemap_->setHighlighted(browser_->state().deepestSelection());
    cacheBadge_->setScan(scan.savedDate, root ? root->size() : 0, scan.occupiedBytes, scan.partial);
    cacheBadge_->setSaveFailure(qtText(scan.saveFailure.value_or("")));
    cacheBadge_->setVisible(!cacheBadgeDismissed_);
    accessBadge_->setVisible(advisory_ && !advisoryDismissed_);
    skippedFolders_ = std::move(scan.skippedFolders);
    skippedAreLocal_ = scan.local;
    skippedBadge_->setCount(skippedFolders_.size());
    skippedBadge_->setVisible(!skippedFolders_.empty() && !skippedDismissed_);
    refreshBadge_->setVisible(refreshStatusShown_);
    badges_->show();
    placeBadges();
}

void TreePage::compareWhenSaved() {
    // Up to a minute for a save in progress (a large tree takes seconds to encode).
    if (!pendingHistoryKey_ || ++saveWaitTicks_ > 300) {
        saveWait_->stop();
        return;
    }
    if (!viewModel_.waitForSavedScans(std::chrono::milliseconds(0))) {
        saveWait_->start();
        return;
    }
    saveWait_->stop();
    changesBar_->showScanOf(viewModel_.cache(), pendingHistoryKey_, false);
    pendingHistoryKey_.reset();
}

void TreePage::setAccessAdvisory(bool shown) {
    if (shown != advisory_) {
        advisoryDismissed_ = false;
    }
    advisory_ = shown;
    accessBadge_->setVisible(isDone_ && advisory_ && !advisoryDismissed_);
    placeBadges();
}

void TreePage::showSkippedFolders() {
    if (skippedDialog_ != nullptr) {
        skippedDialog_->raise();
        skippedDialog_->activateWindow();
        return;
    }
    skippedDialog_ = new SkippedFoldersDialog(skippedFolders_, skippedAreLocal_, this);
    skippedDialog_->setAttribute(Qt::WA_DeleteOnClose);
    connect(skippedDialog_, &QObject::destroyed, this, [this] { skippedDialog_ = nullptr; });
    skippedDialog_->open();
}

void TreePage::setFolderRefreshes(const std::set<std::string>& refreshing, const QString& error) {
    browser_->setRefreshingFolders(refreshing);
    if (error.isEmpty() || !refreshing.empty()) {
        // A new refresh cleared the old failure; a later one shows again.
        dismissedRefreshError_.clear();
    }
    const QString shownError = error == dismissedRefreshError_ ? QString() : error;
    refreshStatusShown_ = refreshBadge_->setStatus(refreshing, shownError);
    refreshBadge_->setVisible(isDone_ && refreshStatusShown_);
    placeBadges();
}

void TreePage::forgetPath() {
    pendingHistoryKey_.reset();
    saveWait_->stop();
    changesBar_->clear();
    browser_->clear();
    treemap_->setRoot(nullptr);
    overview_->setTree(nullptr);
}

bool TreePage::eventFilter(QObject* watched, QEvent* event) {
    // The index of a million names takes a moment: made when the field gets the focus, so the
    // first keystroke is as quick as the others.
    if (watched == searchField_ && event->type() == QEvent::FocusIn) {
        overview_->prepareSearch();
    }
    return QWidget::eventFilter(watched, event);
}

void TreePage::showOverview() {
    const bool searching = !searchField_->text().isEmpty();
    overview_->setSearchText(searchField_->text());
    if (searching) {
        overview_->showPage(OverviewPanel::Page::search);
    } else if (largestButton_->isChecked()) {
        overview_->showPage(OverviewPanel::Page::largestFiles);
    } else if (typesButton_->isChecked()) {
        overview_->showPage(OverviewPanel::Page::types);
    }
    overview_->setVisible(haveTree_ &&
                          (searching || largestButton_->isChecked() || typesButton_->isChecked()));
}

void TreePage::setMapShown(bool shown) {
    mapShown_ = shown;
    (shown ? mapButton_ : columnsButton_)->setChecked(true);
    showTreeViews(haveTree_);
    if (shown && haveTree_) {
        treemap_->setFocus();
    }
}

void TreePage::showTreeViews(bool haveTree) {
    haveTree_ = haveTree;
    browser_->setVisible(haveTree && !mapShown_);
    treemap_->setVisible(haveTree && mapShown_);
    showOverview();
}

void TreePage::placeBadges() {
    badges_->setVisible(
        isDone_ && (cacheBadge_->isVisibleTo(badges_) || accessBadge_->isVisibleTo(badges_) ||
                    skippedBadge_->isVisibleTo(badges_) || refreshBadge_->isVisibleTo(badges_)));
}

} // namespace brimvale
