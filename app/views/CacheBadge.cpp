#include "app/views/CacheBadge.h"

#include "app/support/BadgeBackground.h"
#include "app/support/BadgeCloseButton.h"
#include "app/support/DateTexts.h"
#include "app/support/SymbolLabel.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

namespace brimvale {
namespace {

constexpr int kCaptionSymbol = 14;
constexpr double kCoverageThreshold = 0.85;

Date currentDate() {
    return Date::fromUnixSeconds(static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0);
}

} // namespace

CacheBadge::CacheBadge(QWidget* parent)
    : QFrame(parent) {
    setObjectName(QStringLiteral("cacheBadge"));
    setAccessibleName(tr("Saved scan"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 4, 4, 4);
    layout->setSpacing(6);
    drive_ = new SymbolLabel(kCaptionSymbol, this);
    layout->addWidget(drive_);
    clock_ = new SymbolLabel(kCaptionSymbol, this);
    clock_->setSymbol(Symbols::icon("clock", QPalette::PlaceholderText));
    layout->addWidget(clock_);
    date_ = new QLabel(this);
    layout->addWidget(date_);
    rescan_ = new QPushButton(Symbols::icon("arrow.clockwise"), tr("Rescan"), this);
    rescan_->setAccessibleName(tr("Rescan"));
    rescan_->setFlat(true);
    connect(rescan_, &QPushButton::clicked, this, &CacheBadge::rescanRequested);
    layout->addWidget(rescan_);
    close_ = makeBadgeCloseButton(this, tr("Hide saved-scan badge"));
    connect(close_, &QToolButton::clicked, this, &CacheBadge::dismissRequested);
    layout->addWidget(close_);
    dateTimer_.setInterval(30'000);
    connect(&dateTimer_, &QTimer::timeout, this, &CacheBadge::refreshDate);
    dateTimer_.start();
}

QLabel* CacheBadge::driveSymbol() const {
    return drive_;
}

void CacheBadge::paintEvent(QPaintEvent* /*event*/) {
    paintBadgeBackground(*this);
}

bool CacheBadge::accountsForTooLittle(std::int64_t accountedBytes,
                                      std::optional<std::int64_t> occupiedBytes) {
    if (!occupiedBytes || *occupiedBytes < 1) {
        return false;
    }
    return static_cast<double>(accountedBytes) / static_cast<double>(*occupiedBytes) <
           kCoverageThreshold;
}

QString CacheBadge::coverageText(bool tooLittle) {
    return tooLittle ? tr("Scan accounts for less than 85% of reported occupied size — rescan to "
                          "refresh.")
                     : tr("Scan accounts for most of the reported occupied size.");
}

QString CacheBadge::partialScanText(std::optional<Date> savedDate, Date now) {
    if (!savedDate) {
        return tr("Partial scan");
    }
    return tr("Partial scan, saved %1").arg(qtText(DateTexts::relativeDateText(*savedDate, now)));
}

QString CacheBadge::partialScanExplanation() {
    return tr("This scan did not finish (it was stopped or cut short), so folders it had not "
              "reached are missing or too small. Rescan completes it.");
}

void CacheBadge::setScan(std::optional<Date> savedDate, std::int64_t accountedBytes,
                         std::optional<std::int64_t> occupiedBytes, bool partial) {
    savedDate_ = savedDate;
    partial_ = partial;
    drive_->setVisible(occupiedBytes.has_value());
    driveWarning_ = accountsForTooLittle(accountedBytes, occupiedBytes);
    if (occupiedBytes) {
        drive_->setSymbol(driveWarning_
                              ? Symbols::icon("externaldrive", QColor(0xF0, 0x8C, 0x00))
                              : Symbols::icon("externaldrive", QPalette::PlaceholderText));
        drive_->setToolTip(coverageText(driveWarning_));
        drive_->setAccessibleName(coverageText(driveWarning_));
    }
    refreshDate();
    adjustSize();
}

void CacheBadge::setSaveFailure(const QString& reason) {
    if (reason == saveFailure_) {
        return;
    }
    saveFailure_ = reason;
    refreshDate();
    adjustSize();
}

void CacheBadge::refreshDate() {
    const bool unsaved = !saveFailure_.isEmpty();
    clock_->setVisible(savedDate_.has_value() || partial_ || unsaved);
    date_->setVisible(savedDate_.has_value() || partial_ || unsaved);
    setAccessibleName(unsaved    ? tr("Scan not saved")
                      : partial_ ? tr("Partial saved scan")
                                 : tr("Saved scan"));
    clock_->setToolTip({});
    rescan_->setToolTip({});
    const QColor warning(0xF0, 0x8C, 0x00);
    clock_->setSymbol(unsaved    ? Symbols::icon("exclamationmark.triangle.fill", warning)
                      : partial_ ? Symbols::icon("clock", warning)
                                 : Symbols::icon("clock", QPalette::PlaceholderText));
    if (unsaved) {
        date_->setText(partial_ ? tr("Partial scan, not saved") : tr("Not saved"));
        const QString tip =
            tr("This scan could not be saved, so the next start will not show it: %1")
                .arg(saveFailure_);
        date_->setToolTip(tip);
        clock_->setToolTip(tip);
    } else if (partial_) {
        date_->setText(partialScanText(savedDate_, currentDate()));
        QString tip = partialScanExplanation();
        if (savedDate_) {
            tip += QStringLiteral("\n") + qtText(DateTexts::abbreviatedDateText(*savedDate_));
        }
        date_->setToolTip(tip);
        clock_->setToolTip(tip);
        rescan_->setToolTip(tr("Scan the whole account again, to complete it"));
    } else if (savedDate_) {
        date_->setText(qtText(DateTexts::cachedDateText(*savedDate_, currentDate())));
        date_->setToolTip(qtText(DateTexts::abbreviatedDateText(*savedDate_)));
    }
}

} // namespace brimvale
