#include "app/browser/HoverNameChip.h"

#include "app/support/BadgeBackground.h"

#include <QPalette>

namespace brimvale {

namespace {
constexpr int kDelayMilliseconds = 450;
}

HoverNameChip::HoverNameChip(QWidget* parent)
    : QLabel(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
    setTextFormat(Qt::PlainText);
    setMargin(0);
    setContentsMargins(8, 3, 8, 3);
    setAutoFillBackground(false);
    setForegroundRole(QPalette::ToolTipText);
    hide();
    delay_.setSingleShot(true);
    delay_.setInterval(kDelayMilliseconds);
    connect(&delay_, &QTimer::timeout, this, [this] {
        place();
        show();
        raise();
    });
}

void HoverNameChip::showFor(const QString& name, const QRect& rowFrame, int nameLeft) {
    setText(name);
    rowFrame_ = rowFrame;
    nameLeft_ = nameLeft;
    if (isVisible()) {
        place();
    } else {
        delay_.start();
    }
}

void HoverNameChip::dismiss() {
    delay_.stop();
    hide();
}

void HoverNameChip::paintEvent(QPaintEvent* event) {
    paintBadgeBackground(*this, QPalette::ToolTipBase);
    QLabel::paintEvent(event);
}

void HoverNameChip::place() {
    adjustSize();
    const QWidget* area = parentWidget();
    int left = nameLeft_ - 9;
    if (area != nullptr) {
        left = std::min(left, area->width() - width() - 4);
    }
    left = std::max(4, left);
    const int top = rowFrame_.center().y() - height() / 2;
    move(left, top);
}

} // namespace brimvale
