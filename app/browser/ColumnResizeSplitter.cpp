#include "app/browser/ColumnResizeSplitter.h"

#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace brimvale {

ColumnResizeSplitter::ColumnResizeSplitter(int minWidth, int maxWidth, QWidget* parent)
    : QWidget(parent)
    , minWidth_(minWidth)
    , maxWidth_(maxWidth) {
    setFixedWidth(kGrabWidth);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
    setCursor(Qt::SplitHCursor);
    setToolTip(tr("Drag to resize column"));
    setAccessibleName(tr("Drag to resize column"));
}

void ColumnResizeSplitter::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    QColor line = palette().color(QPalette::Mid);
    if (widthAtDragStart_) {
        line = palette().color(QPalette::Highlight);
    }
    painter.fillRect(QRect(width() / 2, 0, 1, height()), line);
}

void ColumnResizeSplitter::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        return;
    }
    pressed_ = true;
    pressX_ = event->globalPosition().x();
    event->accept();
}

void ColumnResizeSplitter::mouseMoveEvent(QMouseEvent* event) {
    if (!pressed_ || !leadingWidth || !setLeadingWidth) {
        return;
    }
    const qreal translation = event->globalPosition().x() - pressX_;
    // A drag begins after a movement of at least one pixel.
    if (!widthAtDragStart_) {
        if (std::abs(translation) < 1.0) {
            return;
        }
        widthAtDragStart_ = leadingWidth();
        update();
    }
    const int width = std::clamp(*widthAtDragStart_ + static_cast<int>(std::lround(translation)),
                                 minWidth_, maxWidth_);
    setLeadingWidth(width);
    event->accept();
}

void ColumnResizeSplitter::mouseReleaseEvent(QMouseEvent* event) {
    pressed_ = false;
    widthAtDragStart_.reset();
    update();
    event->accept();
}

} // namespace brimvale
