#pragma once

#include "core/persistence/history/SavedScanHistory.h"

#include <QWidget>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class QAction;
class QLabel;
class QMenu;
class QToolButton;

namespace brimvale {

class ChangeIndex;
class ScanCache;

// The strip above a finished tree that has earlier scans: what changed since the one compared
// with ("+1.2 GB since 3 May 2026 09:12"), and the History menu: compare with any earlier
// finished scan (partial ones are listed, not offered), hide the changes, sort by change.
// Comparing runs on the GUI thread: history records are summaries, a few milliseconds each.
// GUI thread only.
class ScanChangesBar final : public QWidget {
    Q_OBJECT
public:
    explicit ScanChangesBar(QWidget* parent = nullptr);

    // The finished tree of `key` on screen (a partial one, or none: the strip hides). Compares
    // it with the scan before it when there is one.
    void showScanOf(ScanCache& cache, const std::optional<std::string>& key, bool partial);
    void clear();

    QMenu* historyMenu() const { return menu_; }
    QAction* sortByChangeAction() const { return sortByChange_; }
    const std::shared_ptr<const ChangeIndex>& changes() const { return changes_; }

signals:
    // What the columns show changed (null: no changes shown).
    void changesChanged(std::shared_ptr<const ChangeIndex> changes, bool sortByChange);

private:
    void compareWith(std::size_t scan);
    void rebuildMenu();

    QLabel* summary_;
    QToolButton* button_;
    QMenu* menu_;
    QAction* sortByChange_;
    std::vector<ListedScan> scans_;
    std::shared_ptr<const ScanSummary> after_;
    std::optional<std::size_t> comparedWith_;
    std::shared_ptr<const ChangeIndex> changes_;
    std::string key_;
};

} // namespace brimvale
