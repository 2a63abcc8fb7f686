#include "app/banner/LiveScanProgressBanner.h"
#include "app/banner/ScanBannerTexts.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace brimvale {
namespace {

using namespace std::chrono_literals;

ScanProgress progressOf(std::int64_t files, std::int64_t folders, std::int64_t bytes) {
    return ScanProgress{.stage = Stage::listing("Scanning /data"),
                        .filesScanned = files,
                        .foldersScanned = folders,
                        .bytesAccountedFor = bytes};
}

TEST(ScanBannerTexts, RatesSummaryAndCounts) {
    EXPECT_EQ(ScanBannerTexts::rateText(0), "0/s");
    EXPECT_EQ(ScanBannerTexts::rateText(9.21), "9/s");
    EXPECT_EQ(ScanBannerTexts::rateText(2.5), "3/s");
    // The current rate shows only above half an item per second.
    EXPECT_EQ(ScanBannerTexts::currentRateText(0.5), std::nullopt);
    EXPECT_EQ(ScanBannerTexts::currentRateText(0.51), "Current 1/s");
    EXPECT_EQ(ScanBannerTexts::currentRateText(-3), std::nullopt);
    EXPECT_EQ(ScanBannerTexts::currentRateText(std::numeric_limits<double>::quiet_NaN()),
              std::nullopt);
    EXPECT_EQ(ScanBannerTexts::summaryText(progressOf(1000, 200, 5'100'000)),
              "Scan progress, 1200 items, 1000 files, 200 folders, 5.1 MB accounted");
    EXPECT_EQ(ScanBannerTexts::summaryText(ScanProgress{}),
              "Scan progress, 0 items, 0 files, 0 folders, 0 bytes accounted");
    EXPECT_EQ(ScanBannerTexts::countText(0, "items"), "0 items");
    EXPECT_EQ(ScanBannerTexts::countText(999, "items"), "999 items");
    EXPECT_EQ(ScanBannerTexts::countText(1000, "folders"), "1,000 folders");
    EXPECT_EQ(ScanBannerTexts::countText(1234567, "items"), "1,234,567 items");
    EXPECT_EQ(ScanBannerTexts::countText(-1234, "items"), "-1,234 items");
}

class BannerTest : public ::testing::Test {
protected:
    void SetUp() override {
        area.resize(900, 600);
        banner = new LiveScanProgressBanner(&area);
        area.show();
        banner->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&area));
    }
    QWidget area;
    LiveScanProgressBanner* banner = nullptr;
    LiveScanProgressBanner::Clock::time_point start =
        LiveScanProgressBanner::Clock::time_point{} + 1h;
};

TEST_F(BannerTest, RateFromSamplesAndANewScanStartsAfresh) {
    banner->startNewScan();
    banner->setProgress(progressOf(0, 0, 0), start);
    EXPECT_EQ(banner->rateLabel()->text(), "0/s");
    EXPECT_FALSE(banner->currentRateLabel()->isVisible());
    banner->setProgress(progressOf(500, 100, 1000), start + 10s);
    EXPECT_EQ(banner->rateLabel()->text(), "9/s");
    EXPECT_EQ(banner->currentRateLabel()->text(), "Current 60/s");
    EXPECT_TRUE(banner->currentRateLabel()->isVisible());
    // A sample 1 ms later changes nothing.
    banner->setProgress(progressOf(5000, 100, 1000), start + 10s + 1ms);
    EXPECT_EQ(banner->currentRateLabel()->text(), "Current 60/s");

    // A new scan: its first sample is only the baseline.
    banner->startNewScan();
    banner->setProgress(progressOf(10, 0, 0), start + 20s);
    EXPECT_EQ(banner->rateLabel()->text(), "0/s");
    EXPECT_FALSE(banner->currentRateLabel()->isVisible());
}

TEST_F(BannerTest, CollapsesToCompactCountersAndStopsFromEitherForm) {
    banner->setProgress(progressOf(1000, 200, 5'100'000), start);
    EXPECT_FALSE(banner->collapsed());
    EXPECT_EQ(banner->chevronButton()->toolTip(), "Collapse to compact counters");
    EXPECT_EQ(banner->dragHandle()->toolTip(), "Drag to move scan progress");
    EXPECT_EQ(banner->expandedPanel()->toolTip(), "Drag the banner to move the progress panel");

    QSignalSpy stops(banner, &LiveScanProgressBanner::stopRequested);
    EXPECT_EQ(banner->stopButton()->text(), "Stop scan");
    QTest::mouseClick(banner->stopButton(), Qt::LeftButton);
    EXPECT_EQ(stops.count(), 1);

    QTest::mouseClick(banner->chevronButton(), Qt::LeftButton);
    EXPECT_TRUE(banner->collapsed());
    EXPECT_TRUE(banner->compactStrip()->isVisible());
    EXPECT_FALSE(banner->expandedPanel()->isVisible());
    EXPECT_EQ(banner->chevronButton()->toolTip(), "Show full scan progress");
    EXPECT_EQ(banner->compactStrip()->toolTip(),
              "Drag the banner to move. Click chevron for details.");
    EXPECT_EQ(banner->compactStrip()->accessibleName(),
              "Scan progress, 1200 items, 1000 files, 200 folders, 5.1 MB accounted");
    const QStringList texts = [this] {
        QStringList all;
        for (const QLabel* label : banner->compactStrip()->findChildren<QLabel*>()) {
            all << label->text();
        }
        return all;
    }();
    EXPECT_TRUE(texts.contains("1,200 items"));
    EXPECT_TRUE(texts.contains("200 folders"));
    QTest::mouseClick(banner->stopButton(), Qt::LeftButton);
    EXPECT_EQ(stops.count(), 2);
}

TEST_F(BannerTest, ButtonsHoldStillWhilePathsAndCountersChangeInBothForms) {
    const auto stopRect = [this] {
        QApplication::processEvents();
        return QRect(banner->stopButton()->mapTo(&area, QPoint(0, 0)),
                     banner->stopButton()->size());
    };
    const std::string longPath = "Scanning /" + std::string(400, 'x') + "/end-of-path";
    for (const bool collapsed : {false, true}) {
        if (banner->collapsed() != collapsed) {
            QTest::mouseClick(banner->chevronButton(), Qt::LeftButton);
        }
        banner->setProgress(progressOf(1, 1, 10), start);
        const QRect first = stopRect();
        const QRect bannerFirst = banner->geometry();
        banner->setProgress(ScanProgress{.stage = Stage::listing(longPath),
                                         .filesScanned = 123'456'789,
                                         .foldersScanned = 9'876'543,
                                         .bytesAccountedFor = 987'654'321'098'765},
                            start + 2s);
        EXPECT_EQ(stopRect(), first) << "collapsed=" << collapsed;
        EXPECT_EQ(banner->geometry(), bannerFirst) << "collapsed=" << collapsed;
        EXPECT_TRUE(area.rect().contains(banner->geometry()));
    }
    // The long path is elided in the middle, whole in the tooltip.
    QTest::mouseClick(banner->chevronButton(), Qt::LeftButton);
    const auto labels = banner->expandedPanel()->findChildren<QLabel*>();
    const auto stage = std::find_if(labels.begin(), labels.end(), [](const QLabel* label) {
        return label->text().endsWith("end-of-path");
    });
    ASSERT_NE(stage, labels.end());
    EXPECT_TRUE((*stage)->text().contains(QChar(0x2026)));
    EXPECT_LE((*stage)->fontMetrics().horizontalAdvance((*stage)->text()), (*stage)->width());
    EXPECT_EQ((*stage)->toolTip().toStdString(), longPath);
}

TEST_F(BannerTest, StaysWhereDroppedAndInsideItsArea) {
    banner->setProgress(progressOf(1, 1, 1), start);
    const QPoint resting = banner->restingPosition();
    EXPECT_EQ(banner->pos(), resting);
    QWidget* handle = banner->dragHandle();
    const QPoint grab = handle->rect().center();
    QTest::mousePress(handle, Qt::LeftButton, {}, grab);
    QTest::mouseMove(handle, grab + QPoint(-100, -200));
    EXPECT_EQ(banner->pos(), resting + QPoint(-100, -200));
    QTest::mouseRelease(handle, Qt::LeftButton, {}, grab + QPoint(-100, -200));
    EXPECT_EQ(banner->accumulatedDrag(), QPoint(-100, -200));
    EXPECT_EQ(banner->pos(), resting + QPoint(-100, -200));

    // A later change of its contents keeps it there.
    banner->setProgress(progressOf(100000, 100, 1), start + 1s);
    EXPECT_EQ(banner->pos(), banner->restingPosition() + QPoint(-100, -200));

    // Dragged far past the edge, it stops at the edge.
    const QPoint grab2 = banner->dragHandle()->rect().center();
    QTest::mousePress(banner->dragHandle(), Qt::LeftButton, {}, grab2);
    QTest::mouseMove(banner->dragHandle(), grab2 + QPoint(-5000, -5000));
    QTest::mouseRelease(banner->dragHandle(), Qt::LeftButton, {}, grab2 + QPoint(-5000, -5000));
    EXPECT_EQ(banner->pos(), QPoint(0, 0));
    // When the area shrinks it stays inside.
    area.resize(300, 200);
    EXPECT_GE(banner->x(), 0);
    EXPECT_GE(banner->y(), 0);
    EXPECT_LE(banner->x() + banner->width(), std::max(area.width(), banner->width()));
}

} // namespace
} // namespace brimvale
