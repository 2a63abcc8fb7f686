#include "app/views/TreePage.h"

#include "app/banner/LiveScanProgressBanner.h"
#include "app/browser/ColumnBrowser.h"
#include "app/support/BusyIndicator.h"
#include "app/views/CacheBadge.h"
#include "app/views/FullDiskAccessBadge.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedLayout>
#include <QVBoxLayout>

namespace brimvale {

namespace {
constexpr int kBadgeMargin = 12;
}

TreePage::TreePage(ScannerViewModel& viewModel, QWidget* parent)
    : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    browser_ = new ColumnBrowser(viewModel, this);
    layout->addWidget(browser_);

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

    badges_ = new QWidget(this);
    auto* badgeLayout = new QHBoxLayout(badges_);
    badgeLayout->setContentsMargins(0, 0, 0, 0);
    badgeLayout->setSpacing(8);
    cacheBadge_ = new CacheBadge(badges_);
    accessBadge_ = new FullDiskAccessBadge(badges_);
    badgeLayout->addWidget(cacheBadge_);
    badgeLayout->addWidget(accessBadge_);
    badges_->hide();
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
    // The badges stay clear of the preview panel.
    connect(browser_, &ColumnBrowser::previewPaneVisibilityChanged, this,
            [this] { placeBadges(); });
    connect(browser_, &ColumnBrowser::pathChanged, this, [this] { placeBadges(); });
}

void TreePage::showScanning(const ScanProgress& progress, const FileNodeRef& liveRoot,
                            bool newScan) {
    isDone_ = false;
    doneRoot_ = nullptr;
    badges_->hide();
    browser_->setVisible(liveRoot != nullptr);
    scanningPlaceholder_->setVisible(liveRoot == nullptr);
    if (liveRoot) {
        browser_->setRoot(liveRoot);
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

void TreePage::showDone(const FileNodeRef& root, std::optional<Date> savedDate,
                        std::optional<std::int64_t> occupiedBytes) {
    banner_->hide();
    scanningPlaceholder_->hide();
    browser_->show();
    if (root != doneRoot_) {
        // A new result: its badge shows again.
        cacheBadgeDismissed_ = false;
    }
    isDone_ = true;
    doneRoot_ = root;
    browser_->setRoot(root);
    cacheBadge_->setScan(savedDate, root ? root->size() : 0, occupiedBytes);
    cacheBadge_->setVisible(!cacheBadgeDismissed_);
    accessBadge_->setVisible(advisory_ && !advisoryDismissed_);
    badges_->show();
    placeBadges();
}

void TreePage::setAccessAdvisory(bool shown) {
    if (shown != advisory_) {
        advisoryDismissed_ = false;
    }
    advisory_ = shown;
    accessBadge_->setVisible(isDone_ && advisory_ && !advisoryDismissed_);
    placeBadges();
}

void TreePage::forgetPath() {
    browser_->clear();
}

void TreePage::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    placeBadges();
}

void TreePage::placeBadges() {
    if (!isDone_) {
        return;
    }
    badges_->adjustSize();
    const QScrollArea* area = browser_->scrollArea();
    const int scrollBar =
        area->horizontalScrollBar()->isVisible() ? area->horizontalScrollBar()->height() : 0;
    const QPoint areaTopLeft = area->mapTo(this, QPoint(0, 0));
    const int right = areaTopLeft.x() + area->width() - kBadgeMargin;
    const int x = std::max(kBadgeMargin, right - badges_->width());
    const int y = areaTopLeft.y() + area->height() - scrollBar - badges_->height() - kBadgeMargin;
    badges_->move(x, y);
    badges_->setVisible(cacheBadge_->isVisibleTo(badges_) || accessBadge_->isVisibleTo(badges_));
    badges_->raise();
}

} // namespace brimvale
