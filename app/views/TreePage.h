#pragma once

#include "core/model/Date.h"
#include "core/model/FileNode.h"
#include "core/model/ScanProgress.h"
#include "core/model/SkippedFolder.h"

#include <QTimer>
#include <QWidget>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

class QLineEdit;
class QToolButton;

namespace brimvale {

class BusyIndicator;
class CacheBadge;
class ColumnBrowser;
class FolderRefreshBadge;
class FullDiskAccessBadge;
class SkippedFoldersBadge;
class SkippedFoldersDialog;
class LiveScanProgressBanner;
class ScanChangesBar;
class ScannerViewModel;
class TreemapView;
class OverviewPanel;

// The detail area of a tree, finished or still growing: the column browser, with the scan
// progress banner floating over it during a scan, and the saved-scan and permissions badges
// over a finished tree, with the folders the scan could not read and what "Rescan This
// Folder" is doing. One page for both, so a scan that finishes keeps the place the user
// browsed to.
class TreePage final : public QWidget {
    Q_OBJECT
public:
    explicit TreePage(ScannerViewModel& viewModel, QWidget* parent = nullptr);

    // A running scan; `newScan` starts the banner's rate afresh. Without a live tree the page
    // shows only that the scan runs.
    void showScanning(const ScanProgress& progress, const FileNodeRef& liveRoot, bool newScan);
    struct DoneScan {
        FileNodeRef root;
        std::optional<Date> savedDate;
        std::optional<std::int64_t> occupiedBytes;
        std::vector<SkippedFolder> skippedFolders;
        bool partial = false;
        // Why the tree could not be saved; none when it was.
        std::optional<std::string> saveFailure;
        // A local scan (the list of unreadable folders says "counted as empty").
        bool local = false;
        // The saved-scan key of the tree: its earlier scans are compared with it.
        std::optional<std::string> historyKey;
    };
    void showDone(DoneScan scan);
    // The folders of the shown account being refreshed (tree paths) and its last refresh
    // failure (empty: none). The browser shows those folders as busy.
    void setFolderRefreshes(const std::set<std::string>& refreshing, const QString& error);
    // Opens the list of unreadable folders (what a click on their badge does).
    void showSkippedFolders();
    void setAccessAdvisory(bool shown);
    // Another account: the browser forgets its path.
    void forgetPath();

    ColumnBrowser* browser() const { return browser_; }
    TreemapView* treemap() const { return treemap_; }
    // Whether the map stands in place of the columns (the toggle above them).
    bool mapShown() const { return mapShown_; }
    void setMapShown(bool shown);
    OverviewPanel* overview() const { return overview_; }
    QLineEdit* searchField() const { return searchField_; }
    QToolButton* largestFilesButton() const { return largestButton_; }
    QToolButton* typesButton() const { return typesButton_; }
    ScanChangesBar* changesBar() const { return changesBar_; }
    LiveScanProgressBanner* banner() const { return banner_; }
    CacheBadge* cacheBadge() const { return cacheBadge_; }
    FullDiskAccessBadge* accessBadge() const { return accessBadge_; }
    SkippedFoldersBadge* skippedBadge() const { return skippedBadge_; }
    FolderRefreshBadge* refreshBadge() const { return refreshBadge_; }
    SkippedFoldersDialog* skippedFoldersDialog() const { return skippedDialog_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    void stopScanRequested();
    void rescanRequested();

private:
    // Shows the status line while any of its badges is shown.
    void placeBadges();

    void compareWhenSaved();
    // The columns or the map, whichever the toggle picks, once there is a tree.
    void showTreeViews(bool haveTree);
    // The overview pane for the toggles and the search field as they are now.
    void showOverview();

    ScannerViewModel& viewModel_;
    ScanChangesBar* changesBar_;
    // A finished tree is compared once its save (and history record) is written.
    QTimer* saveWait_;
    std::optional<std::string> pendingHistoryKey_;
    int saveWaitTicks_ = 0;
    ColumnBrowser* browser_;
    TreemapView* treemap_;
    QToolButton* columnsButton_;
    QToolButton* mapButton_;
    QToolButton* largestButton_;
    QToolButton* typesButton_;
    QLineEdit* searchField_;
    OverviewPanel* overview_;
    bool mapShown_ = false;
    bool haveTree_ = false;
    QWidget* scanningPlaceholder_;
    LiveScanProgressBanner* banner_;
    QWidget* badges_; // the status line below the columns
    CacheBadge* cacheBadge_;
    FullDiskAccessBadge* accessBadge_;
    SkippedFoldersBadge* skippedBadge_;
    FolderRefreshBadge* refreshBadge_;
    SkippedFoldersDialog* skippedDialog_ = nullptr;
    std::vector<SkippedFolder> skippedFolders_;
    bool skippedAreLocal_ = false;
    bool skippedDismissed_ = false;
    bool refreshStatusShown_ = false;
    QString dismissedRefreshError_;
    bool advisory_ = false;
    bool advisoryDismissed_ = false;
    bool cacheBadgeDismissed_ = false;
    std::optional<std::string> saveFailure_;
    bool isDone_ = false;
    FileNodeRef doneRoot_;
};

} // namespace brimvale
