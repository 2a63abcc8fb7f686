#include "app/support/BusyIndicator.h"

#include <QDateTime>
#include <QPainter>
#include <QPainterPath>

namespace brimvale {

namespace {
constexpr int kFrameMilliseconds = 50;
constexpr qint64 kTurnMilliseconds = 900;
} // namespace

BusyIndicator::BusyIndicator(int diameter, QWidget* parent)
    : QWidget(parent)
    , diameter_(diameter) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(tr("In progress"));
    timer_.setInterval(kFrameMilliseconds);
    connect(&timer_, &QTimer::timeout, this, qOverload<>(&QWidget::update));
}

QSize BusyIndicator::sizeHint() const {
    return {diameter_, diameter_};
}

qreal BusyIndicator::currentPhase() {
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    return static_cast<qreal>(now % kTurnMilliseconds) / static_cast<qreal>(kTurnMilliseconds);
}

void BusyIndicator::paintSpinner(QPainter& painter, const QRectF& rect, qreal phase,
                                 const QColor& color) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal width = std::max<qreal>(1.5, rect.width() / 8.0);
    const QRectF ring = rect.adjusted(width / 2, width / 2, -width / 2, -width / 2);
    QColor track = color;
    track.setAlphaF(0.18F);
    painter.setPen(QPen(track, width));
    painter.drawEllipse(ring);
    painter.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap));
    const int start = static_cast<int>(-phase * 360.0 * 16.0);
    painter.drawArc(ring, start + 90 * 16, -100 * 16);
    painter.restore();
}

void BusyIndicator::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    const int side = std::min(width(), height());
    const QRectF rect((width() - side) / 2.0, (height() - side) / 2.0, side, side);
    paintSpinner(painter, rect, currentPhase(), palette().color(QPalette::WindowText));
}

void BusyIndicator::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    timer_.start();
}

void BusyIndicator::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    timer_.stop();
}

} // namespace brimvale
