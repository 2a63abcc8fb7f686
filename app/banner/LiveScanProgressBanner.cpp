#include "app/banner/LiveScanProgressBanner.h"

#include "app/banner/ScanBannerTexts.h"
#include "app/support/BusyIndicator.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"
#include "core/model/SizeFormatter.h"

#include <QEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace brimvale {
namespace {

constexpr int kMargin = 16; // from the parent's edges
constexpr int kExpandedWidth = 520;
constexpr int kCompactWidth = 760;

QLabel* captionLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(std::max(7.0, font.pointSizeF() - 1.0));
    label->setFont(font);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QLabel* valueLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() + 3.0);
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QToolButton* handleButton(QWidget* parent, const QString& help) {
    auto* handle = new QToolButton(parent);
    handle->setIcon(Symbols::icon("line.3.horizontal"));
    handle->setAutoRaise(true);
    handle->setCursor(Qt::OpenHandCursor);
    handle->setToolTip(help);
    handle->setAccessibleName(help);
    handle->setFocusPolicy(Qt::NoFocus);
    return handle;
}

} // namespace

LiveScanProgressBanner::LiveScanProgressBanner(QWidget* parent)
    : QFrame(parent) {
    setObjectName(QStringLiteral("scanProgressBanner"));
    setAttribute(Qt::WA_TranslucentBackground, false);
    setAccessibleName(tr("Scan progress"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 10);
    layout->setSpacing(0);
    buildExpanded();
    buildCompact();
    layout->addWidget(expanded_);
    layout->addWidget(compact_);
    setCollapsed(false);
    if (parent != nullptr) {
        parent->installEventFilter(this);
    }
    refreshTexts();
}

void LiveScanProgressBanner::buildExpanded() {
    expanded_ = new QWidget(this);
    expanded_->setToolTip(tr("Drag the banner to move the progress panel"));
    auto* layout = new QVBoxLayout(expanded_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    auto* header = new QHBoxLayout();
    expandedHandle_ = handleButton(expanded_, tr("Drag to move scan progress"));
    expandedHandle_->installEventFilter(this);
    header->addWidget(expandedHandle_);
    stage_ = new QLabel(expanded_);
    QFont stageFont = stage_->font();
    stageFont.setBold(true);
    stage_->setFont(stageFont);
    // Long paths must not widen the banner: the text is elided to whatever width it gets.
    stage_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    stage_->setMinimumWidth(0);
    header->addWidget(stage_, 1);
    chevron_ = new QToolButton(this);
    chevron_->setAutoRaise(true);
    connect(chevron_, &QToolButton::clicked, this, [this] { setCollapsed(!collapsed_); });
    header->addWidget(chevron_);
    layout->addLayout(header);

    auto* grid = new QGridLayout();
    grid->setHorizontalSpacing(28);
    grid->setVerticalSpacing(2);
    grid->addWidget(captionLabel(tr("Items scanned"), expanded_), 0, 0);
    grid->addWidget(captionLabel(tr("Size accounted"), expanded_), 0, 1);
    grid->addWidget(captionLabel(tr("Avg rate (~1 min)"), expanded_), 0, 2);
    itemsValue_ = valueLabel(expanded_);
    sizeValue_ = valueLabel(expanded_);
    rateValue_ = valueLabel(expanded_);
    grid->addWidget(itemsValue_, 1, 0);
    grid->addWidget(sizeValue_, 1, 1);
    grid->addWidget(rateValue_, 1, 2);
    currentRate_ = captionLabel(QString(), expanded_);
    // Its row keeps its place when hidden: the banner's height never jumps.
    QSizePolicy keepPlace = currentRate_->sizePolicy();
    keepPlace.setRetainSizeWhenHidden(true);
    currentRate_->setSizePolicy(keepPlace);
    grid->addWidget(currentRate_, 2, 2);
    layout->addLayout(grid);

    auto* footer = new QHBoxLayout();
    footer->addWidget(new BusyIndicator(14, expanded_));
    auto* still = captionLabel(tr("Still scanning…"), expanded_);
    footer->addWidget(still, 1);
    expandedStop_ = new QPushButton(Symbols::icon("stop.fill"), tr("Stop scan"), expanded_);
    expandedStop_->setAccessibleName(tr("Stop scan"));
    connect(expandedStop_, &QPushButton::clicked, this, &LiveScanProgressBanner::stopRequested);
    footer->addWidget(expandedStop_);
    layout->addLayout(footer);
}

void LiveScanProgressBanner::buildCompact() {
    compact_ = new QWidget(this);
    compact_->setToolTip(tr("Drag the banner to move. Click chevron for details."));
    auto* layout = new QHBoxLayout(compact_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    compactHandle_ = handleButton(compact_, tr("Drag to move scan progress"));
    compactHandle_->installEventFilter(this);
    layout->addWidget(compactHandle_);
    layout->addWidget(new BusyIndicator(14, compact_));
    compactItems_ = new QLabel(compact_);
    compactFolders_ = new QLabel(compact_);
    compactSize_ = new QLabel(compact_);
    compactRate_ = new QLabel(compact_);
    for (QLabel* label : {compactItems_, compactFolders_, compactSize_, compactRate_}) {
        layout->addWidget(label);
    }
    layout->addStretch(1);
    compactStop_ = new QPushButton(Symbols::icon("stop.fill"), tr("Stop scan"), compact_);
    compactStop_->setAccessibleName(tr("Stop scan"));
    connect(compactStop_, &QPushButton::clicked, this, &LiveScanProgressBanner::stopRequested);
    layout->addWidget(compactStop_);
}

QPushButton* LiveScanProgressBanner::stopButton() const {
    return collapsed_ ? compactStop_ : expandedStop_;
}

QWidget* LiveScanProgressBanner::dragHandle() const {
    return collapsed_ ? compactHandle_ : expandedHandle_;
}

QString LiveScanProgressBanner::compactSummary() const {
    return qtText(ScanBannerTexts::summaryText(progress_));
}

void LiveScanProgressBanner::startNewScan() {
    rateEMA_ = ScanItemsRateEMA{};
    rate_ = 0;
    instantRate_ = 0;
    progress_ = ScanProgress{};
    refreshTexts();
}

void LiveScanProgressBanner::setProgress(const ScanProgress& progress, Clock::time_point now) {
    progress_ = progress;
    rateEMA_.record(progress.itemsScanned(), now);
    rate_ = rateEMA_.smoothedPerSecond;
    instantRate_ = rateEMA_.instantPerSecond;
    refreshTexts();
}

void LiveScanProgressBanner::refreshTexts() {
    const QString items = qtText(ScanBannerTexts::countText(progress_.itemsScanned(), "items"));
    const QString size = qtText(formatBytes(progress_.bytesAccountedFor));
    const QString rate = qtText(ScanBannerTexts::rateText(rate_));
    const auto current = ScanBannerTexts::currentRateText(instantRate_);
    stageText_ = progress_.stage.text().empty() ? tr("Scanning") : qtText(progress_.stage.text());
    showStageText();
    itemsValue_->setText(QLocale().toString(static_cast<qlonglong>(progress_.itemsScanned())));
    sizeValue_->setText(size);
    rateValue_->setText(rate);
    currentRate_->setText(current ? qtText(*current) : QString());
    currentRate_->setVisible(current.has_value());

    compactItems_->setText(items);
    compactFolders_->setText(
        qtText(ScanBannerTexts::countText(progress_.foldersScanned, "folders")));
    compactSize_->setText(size);
    compactRate_->setText(rate);
    compact_->setAccessibleName(compactSummary());
    compact_->setAccessibleDescription(tr("Drag the banner to move. Click chevron for details."));
}

void LiveScanProgressBanner::showStageText() {
    const int available = stage_->contentsRect().width();
    stage_->setText(available > 0
                        ? stage_->fontMetrics().elidedText(stageText_, Qt::ElideMiddle, available)
                        : stageText_);
    stage_->setToolTip(stage_->text() == stageText_ ? QString() : stageText_);
}

void LiveScanProgressBanner::fitToArea() {
    const QWidget* area = parentWidget();
    const int areaWidth = area == nullptr ? kCompactWidth : area->width() - 2 * kMargin;
    const int wanted = collapsed_ ? kCompactWidth : kExpandedWidth;
    const int least = std::min(wanted, layout()->minimumSize().width());
    setFixedWidth(std::max(least, std::min(wanted, areaWidth)));
    setFixedHeight(sizeHint().height());
    showStageText();
}

void LiveScanProgressBanner::setCollapsed(bool collapsed) {
    collapsed_ = collapsed;
    expanded_->setVisible(!collapsed);
    compact_->setVisible(collapsed);
    // The chevron moves to the strip in its compact form.
    auto* compactLayout = qobject_cast<QHBoxLayout*>(compact_->layout());
    auto* expandedHeader = qobject_cast<QHBoxLayout*>(expanded_->layout()->itemAt(0)->layout());
    if (collapsed) {
        compactLayout->addWidget(chevron_);
        chevron_->setIcon(Symbols::icon("chevron.down.circle.fill"));
        chevron_->setToolTip(tr("Show full scan progress"));
    } else {
        expandedHeader->addWidget(chevron_);
        chevron_->setIcon(Symbols::icon("chevron.up.circle.fill"));
        chevron_->setToolTip(tr("Collapse to compact counters"));
    }
    chevron_->setAccessibleName(chevron_->toolTip());
    chevron_->show();
    fitToArea();
    place();
}

QPoint LiveScanProgressBanner::restingPosition() const {
    const QWidget* area = parentWidget();
    if (area == nullptr) {
        return {};
    }
    return {(area->width() - width()) / 2, area->height() - height() - kMargin};
}

void LiveScanProgressBanner::place() {
    const QWidget* area = parentWidget();
    if (area == nullptr) {
        return;
    }
    QPoint position = restingPosition() + accumulatedDrag_ + dragGestureTranslation_;
    // However far it is dragged, the banner stays inside the area it floats over.
    position.setX(std::clamp(position.x(), 0, std::max(0, area->width() - width())));
    position.setY(std::clamp(position.y(), 0, std::max(0, area->height() - height())));
    move(position);
}

bool LiveScanProgressBanner::eventFilter(QObject* watched, QEvent* event) {
    if (watched == parentWidget() && event->type() == QEvent::Resize) {
        fitToArea();
        place();
    }
    if (watched == expandedHandle_ || watched == compactHandle_) {
        switch (event->type()) {
        case QEvent::MouseButtonPress: {
            auto* mouse = static_cast<QMouseEvent*>(event);
            if (mouse->button() == Qt::LeftButton) {
                beginDrag(mouse->globalPosition());
                return true;
            }
            break;
        }
        case QEvent::MouseMove:
            continueDrag(static_cast<QMouseEvent*>(event)->globalPosition());
            return dragStart_.has_value();
        case QEvent::MouseButtonRelease:
            if (dragStart_) {
                endDrag();
                return true;
            }
            break;
        default:
            break;
        }
    }
    return QFrame::eventFilter(watched, event);
}

void LiveScanProgressBanner::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        beginDrag(event->globalPosition());
        event->accept();
    }
}

void LiveScanProgressBanner::mouseMoveEvent(QMouseEvent* event) {
    continueDrag(event->globalPosition());
}

void LiveScanProgressBanner::mouseReleaseEvent(QMouseEvent* /*event*/) {
    endDrag();
}

void LiveScanProgressBanner::beginDrag(const QPointF& globalPosition) {
    dragStart_ = globalPosition;
    dragGestureTranslation_ = {};
    setCursor(Qt::ClosedHandCursor);
}

void LiveScanProgressBanner::continueDrag(const QPointF& globalPosition) {
    if (!dragStart_) {
        return;
    }
    dragGestureTranslation_ = (globalPosition - *dragStart_).toPoint();
    place();
}

void LiveScanProgressBanner::endDrag() {
    if (!dragStart_) {
        return;
    }
    // The banner stays where it was dropped (within its area).
    accumulatedDrag_ = pos() - restingPosition();
    dragGestureTranslation_ = {};
    dragStart_.reset();
    unsetCursor();
    place();
}

void LiveScanProgressBanner::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF shape = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QColor fill = palette().color(QPalette::Window);
    fill.setAlphaF(0.97F);
    QColor border = palette().color(QPalette::Mid);
    painter.setPen(QPen(border, 1));
    painter.setBrush(fill);
    painter.drawRoundedRect(shape, 12, 12);
}

} // namespace brimvale
