#pragma once

#include "core/model/ScanItemsRateEMA.h"
#include "core/model/ScanProgress.h"

#include <QFrame>
#include <QPoint>

#include <optional>

class QLabel;
class QPushButton;
class QToolButton;

namespace brimvale {

class BusyIndicator;

// The movable banner over a running scan: items scanned, the size accounted for, the smoothed
// one-minute rate with the current one beside it, and "Stop scan". It is either a compact strip
// of counters or an expanded panel (the chevron switches), and stays where it is dropped after
// a drag. A child of the view it floats over; GUI thread only.
class LiveScanProgressBanner final : public QFrame {
    Q_OBJECT
public:
    using Clock = ScanItemsRateEMA::Clock;

    explicit LiveScanProgressBanner(QWidget* parent);

    // A new scan: the rate starts again from no sample.
    void startNewScan();
    // Shows `progress` and adds it as a rate sample taken at `now`.
    void setProgress(const ScanProgress& progress, Clock::time_point now = Clock::now());
    const ScanProgress& progress() const { return progress_; }

    bool collapsed() const { return collapsed_; }
    void setCollapsed(bool collapsed);
    // The offset from the resting place, kept between drags.
    QPoint accumulatedDrag() const { return accumulatedDrag_; }
    // Where the banner rests before any drag: centred near the bottom of its parent.
    QPoint restingPosition() const;

    double rate() const { return rate_; }
    double instantRate() const { return instantRate_; }

    // Parts, for tests and accessibility.
    QLabel* rateLabel() const { return rateValue_; }
    QLabel* currentRateLabel() const { return currentRate_; }
    QToolButton* chevronButton() const { return chevron_; }
    QPushButton* stopButton() const;
    QWidget* dragHandle() const;
    QWidget* compactStrip() const { return compact_; }
    QWidget* expandedPanel() const { return expanded_; }
    QString compactSummary() const;

signals:
    void stopRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void buildExpanded();
    void buildCompact();
    void refreshTexts();
    // The stage (a path, often) elided in the middle to the width its label has.
    void showStageText();
    // A width that depends on the area only, never on the texts, so the buttons stay put.
    void fitToArea();
    void place();
    void beginDrag(const QPointF& globalPosition);
    void continueDrag(const QPointF& globalPosition);
    void endDrag();

    ScanProgress progress_;
    QString stageText_;
    ScanItemsRateEMA rateEMA_;
    double rate_ = 0;
    double instantRate_ = 0;
    bool collapsed_ = false;
    QPoint accumulatedDrag_;
    QPoint dragGestureTranslation_;
    std::optional<QPointF> dragStart_;

    QWidget* expanded_ = nullptr;
    QWidget* compact_ = nullptr;
    QToolButton* chevron_ = nullptr;
    QToolButton* expandedHandle_ = nullptr;
    QToolButton* compactHandle_ = nullptr;
    QPushButton* expandedStop_ = nullptr;
    QPushButton* compactStop_ = nullptr;
    QLabel* stage_ = nullptr;
    QLabel* itemsValue_ = nullptr;
    QLabel* sizeValue_ = nullptr;
    QLabel* rateValue_ = nullptr;
    QLabel* currentRate_ = nullptr;
    QLabel* compactItems_ = nullptr;
    QLabel* compactFolders_ = nullptr;
    QLabel* compactSize_ = nullptr;
    QLabel* compactRate_ = nullptr;
};

} // namespace brimvale
