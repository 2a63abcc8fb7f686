#include "app/support/SymbolLabel.h"

#include <QPainter>

namespace brimvale {

SymbolLabel::SymbolLabel(int size, QWidget* parent)
    : QLabel(parent)
    , size_(size) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void SymbolLabel::setSymbol(const QIcon& icon) {
    icon_ = icon;
    updateGeometry();
    update();
}

QSize SymbolLabel::sizeHint() const {
    return {size_, size_};
}

void SymbolLabel::paintEvent(QPaintEvent* /*event*/) {
    if (icon_.isNull()) {
        return;
    }
    QPainter painter(this);
    const QRect square((width() - size_) / 2, (height() - size_) / 2, size_, size_);
    icon_.paint(&painter, square, Qt::AlignCenter, isEnabled() ? QIcon::Normal : QIcon::Disabled);
}

} // namespace brimvale
