#pragma once

#include <QColor>
#include <QLabel>
#include <QPalette>

namespace brimvale {

// Draws the label's text in the error colour (red, readable on light and dark backgrounds).
inline void useErrorColour(QLabel& label) {
    QPalette palette = label.palette();
    palette.setColor(QPalette::WindowText, QColor(0xD0, 0x3A, 0x2F));
    label.setPalette(palette);
    label.setForegroundRole(QPalette::WindowText);
}

} // namespace brimvale
