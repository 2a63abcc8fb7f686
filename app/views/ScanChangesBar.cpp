#include "app/views/ScanChangesBar.h"

#include "app/support/WidgetText.h"
#include "core/model/SizeFormatter.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/persistence/history/ChangeIndex.h"
#include "core/persistence/history/ScanChanges.h"

#include <QActionGroup>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QToolButton>

namespace brimvale {
namespace {

QString dateText(Date date) {
    return QLocale().toString(
        QDateTime::fromSecsSinceEpoch(static_cast<qint64>(date.unixSeconds())),
        QLocale::ShortFormat);
}

} // namespace

ScanChangesBar::ScanChangesBar(QWidget* parent)
    : QWidget(parent) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 4, 8, 4);
    summary_ = new QLabel(this);
    layout->addWidget(summary_, 1);
    button_ = new QToolButton(this);
    button_->setText(tr("History"));
    button_->setPopupMode(QToolButton::InstantPopup);
    menu_ = new QMenu(this);
    button_->setMenu(menu_);
    layout->addWidget(button_);
    sortByChange_ = new QAction(tr("Sort by Change"), this);
    sortByChange_->setCheckable(true);
    connect(sortByChange_, &QAction::toggled, this,
            [this](bool on) { emit changesChanged(changes_, on); });
    hide();
}

void ScanChangesBar::clear() {
    scans_.clear();
    after_ = nullptr;
    comparedWith_.reset();
    key_.clear();
    if (changes_) {
        changes_ = nullptr;
        emit changesChanged(nullptr, sortByChange_->isChecked());
    }
    hide();
}

void ScanChangesBar::showScanOf(ScanCache& cache, const std::optional<std::string>& key,
                                bool partial) {
    if (!key || partial) {
        clear();
        return;
    }
    const bool sameKey = *key == key_;
    const std::optional<std::size_t> previous = sameKey ? comparedWith_ : std::nullopt;
    clear();
    key_ = *key;
    // Only a tree the history knows (a refreshed folder or a scan saved before history was
    // kept would have to be read whole, here on the GUI thread).
    const auto history = ScanHistory(cache.directory()).entries(key_);
    if (history.empty() || history.front().savedFile != cache.savedFileIdentity(key_)) {
        return;
    }
    scans_ = listSavedScans(cache, key_);
    // The tree on screen is the newest saved scan; a partial one in its place is another tree.
    if (scans_.size() < 2 || scans_.front().partial) {
        return;
    }
    try {
        after_ = loadListedScan(scans_.front());
    } catch (const std::exception&) {
        return;
    }
    std::optional<std::size_t> first;
    for (std::size_t index = 1; index < scans_.size() && !first; ++index) {
        if (!scans_[index].partial) {
            first = index;
        }
    }
    if (!first) {
        return;
    }
    show();
    compareWith(previous && *previous < scans_.size() ? *previous : *first);
}

void ScanChangesBar::compareWith(std::size_t scan) {
    try {
        const auto before = loadListedScan(scans_[scan]);
        const ScanComparison comparison = compareScans(*before, *after_);
        changes_ = std::make_shared<const ChangeIndex>(comparison);
        comparedWith_ = scan;
    } catch (const std::exception&) {
        changes_ = nullptr;
        comparedWith_.reset();
    }
    if (changes_) {
        const ScanChange& total = changes_->total();
        const std::string change = ChangeIndex::text(&total);
        summary_->setText(tr("%1 since %2 (%3 → %4)")
                              .arg(change.empty() ? tr("No change") : qtText(change),
                                   dateText(scans_[scan].date), qtText(formatBytes(total.before)),
                                   qtText(formatBytes(total.after))));
    } else {
        summary_->setText(tr("Changes hidden"));
    }
    rebuildMenu();
    emit changesChanged(changes_, sortByChange_->isChecked());
}

void ScanChangesBar::rebuildMenu() {
    menu_->clear();
    menu_->addSection(tr("Compare With"));
    auto* group = new QActionGroup(menu_);
    for (std::size_t index = 1; index < scans_.size(); ++index) {
        const ListedScan& scan = scans_[index];
        QString label = tr("%1 — %2").arg(dateText(scan.date), qtText(formatBytes(scan.totalSize)));
        if (scan.partial) {
            label += tr(" (partial)");
        }
        QAction* action = menu_->addAction(label);
        action->setCheckable(true);
        action->setEnabled(!scan.partial);
        action->setChecked(comparedWith_ == index);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, index] { compareWith(index); });
    }
    QAction* hide = menu_->addAction(tr("Hide Changes"));
    hide->setCheckable(true);
    hide->setChecked(!comparedWith_);
    group->addAction(hide);
    connect(hide, &QAction::triggered, this, [this] {
        changes_ = nullptr;
        comparedWith_.reset();
        summary_->setText(tr("Changes hidden"));
        emit changesChanged(nullptr, sortByChange_->isChecked());
    });
    menu_->addSeparator();
    menu_->addAction(sortByChange_);
}

} // namespace brimvale
