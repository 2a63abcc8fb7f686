#pragma once

#include <QPainter>
#include <QWidget>

namespace brimvale {

// The rounded plate under the badges and chips that float over the columns, in the colours of
// the palette in force (so a switch to a dark palette repaints it right).
inline void paintBadgeBackground(QWidget& widget, QPalette::ColorRole fill = QPalette::Window) {
    QPainter painter(&widget);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(widget.palette().color(QPalette::Mid), 1));
    painter.setBrush(widget.palette().color(fill));
    painter.drawRoundedRect(QRectF(widget.rect()).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
}

} // namespace brimvale
