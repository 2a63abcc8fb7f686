#pragma once

#include "core/model/Date.h"
#include "core/model/FileNode.h"
#include "core/model/ScanProgress.h"

#include <QWidget>

#include <cstdint>
#include <optional>

namespace brimvale {

class BusyIndicator;
class CacheBadge;
class ColumnBrowser;
class FullDiskAccessBadge;
class LiveScanProgressBanner;
class ScannerViewModel;

// The detail area of a tree, finished or still growing: the column browser, with the scan
// progress banner floating over it during a scan, and the saved-scan and permissions badges
// over a finished tree. One page for both, so a scan that finishes keeps the place the user
// browsed to.
class TreePage final : public QWidget {
    Q_OBJECT
public:
    explicit TreePage(ScannerViewModel& viewModel, QWidget* parent = nullptr);

    // A running scan; `newScan` starts the banner's rate afresh. Without a live tree the page
    // shows only that the scan runs.
    void showScanning(const ScanProgress& progress, const FileNodeRef& liveRoot, bool newScan);
    void showDone(const FileNodeRef& root, std::optional<Date> savedDate,
                  std::optional<std::int64_t> occupiedBytes);
    void setAccessAdvisory(bool shown);
    // Another account: the browser forgets its path.
    void forgetPath();

    ColumnBrowser* browser() const { return browser_; }
    LiveScanProgressBanner* banner() const { return banner_; }
    CacheBadge* cacheBadge() const { return cacheBadge_; }
    FullDiskAccessBadge* accessBadge() const { return accessBadge_; }

signals:
    void stopScanRequested();
    void rescanRequested();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void placeBadges();

    ColumnBrowser* browser_;
    QWidget* scanningPlaceholder_;
    LiveScanProgressBanner* banner_;
    QWidget* badges_;
    CacheBadge* cacheBadge_;
    FullDiskAccessBadge* accessBadge_;
    bool advisory_ = false;
    bool advisoryDismissed_ = false;
    bool cacheBadgeDismissed_ = false;
    bool isDone_ = false;
    FileNodeRef doneRoot_;
};

} // namespace brimvale
