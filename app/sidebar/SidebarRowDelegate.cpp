#include "app/sidebar/SidebarRowDelegate.h"

#include "app/sidebar/SidebarModel.h"
#include "app/support/BusyIndicator.h"
#include "app/support/Symbols.h"

#include <QPainter>

namespace brimvale {

namespace {
constexpr int kIconSize = 18;
constexpr int kPadding = 10;
} // namespace

SidebarRowDelegate::SidebarRowDelegate(QObject* parent)
    : QStyledItemDelegate(parent) {}

QSize SidebarRowDelegate::sizeHint(const QStyleOptionViewItem& option,
                                   const QModelIndex& /*index*/) const {
    return {0, std::max(30, QFontMetrics(option.font).height() + 14)};
}

void SidebarRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QPalette& palette = option.palette;
    const bool selected = (option.state & QStyle::State_Selected) != 0;
    const bool hovered = (option.state & QStyle::State_MouseOver) != 0;
    const bool focused = (option.state & QStyle::State_HasFocus) != 0;
    QColor text = palette.color(QPalette::WindowText);
    QColor secondary = palette.color(QPalette::PlaceholderText);
    const QRectF background = QRectF(option.rect).adjusted(6, 1, -6, -1);
    if (selected) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(palette.color(QPalette::Active, QPalette::Highlight));
        painter->drawRoundedRect(background, 6, 6);
        text = palette.color(QPalette::Active, QPalette::HighlightedText);
        secondary = text;
    } else if (hovered) {
        QColor fill = text;
        fill.setAlphaF(0.07F);
        painter->setPen(Qt::NoPen);
        painter->setBrush(fill);
        painter->drawRoundedRect(background, 6, 6);
    }
    if (focused && !selected) {
        QColor ring = palette.color(QPalette::Highlight);
        painter->setPen(QPen(ring, 1.5));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(background, 6, 6);
    }

    const QRect rect = option.rect.adjusted(6 + kPadding, 0, -(6 + kPadding), 0);
    const int middle = rect.center().y();
    const QRect iconRect(rect.left(), middle - kIconSize / 2 + 1, kIconSize, kIconSize);
    const QString type = index.data(SidebarModel::RcloneTypeRole).toString();
    const QColor iconColor = selected ? text : palette.color(QPalette::Active, QPalette::Highlight);
    Symbols::icon(Symbols::serviceSymbol(type.toStdString()), iconColor).paint(painter, iconRect);

    // The glance, right-aligned.
    int right = rect.right();
    const auto glance =
        static_cast<SidebarModel::Glance>(index.data(SidebarModel::GlanceRole).toInt());
    switch (glance) {
    case SidebarModel::Glance::busy: {
        const QRectF spinner(right - 14, middle - 6, 13, 13);
        BusyIndicator::paintSpinner(*painter, spinner, BusyIndicator::currentPhase(), secondary);
        right -= 22;
        break;
    }
    case SidebarModel::Glance::size: {
        QFont font = option.font;
        font.setPointSizeF(std::max(7.0, font.pointSizeF() - 1.0));
        painter->setFont(font);
        painter->setPen(secondary);
        const QString size = index.data(SidebarModel::GlanceTextRole).toString();
        const int width = QFontMetrics(font).horizontalAdvance(size);
        painter->drawText(QRect(right - width, rect.top(), width + 1, rect.height()),
                          Qt::AlignRight | Qt::AlignVCenter, size);
        right -= width + 8;
        break;
    }
    case SidebarModel::Glance::warning: {
        const QRect mark(right - 15, middle - 7, 15, 15);
        Symbols::icon("exclamationmark.triangle.fill", QColor(0xE8, 0x9A, 0x17))
            .paint(painter, mark);
        right -= 23;
        break;
    }
    case SidebarModel::Glance::none:
        break;
    }

    const QRect nameRect(iconRect.right() + 9, rect.top(),
                         std::max(0, right - iconRect.right() - 9), rect.height());
    painter->setFont(option.font);
    painter->setPen(text);
    const QString name =
        QFontMetrics(option.font)
            .elidedText(index.data(Qt::DisplayRole).toString(), Qt::ElideRight, nameRect.width());
    painter->drawText(nameRect, Qt::AlignLeft | Qt::AlignVCenter, name);
    painter->restore();
}

} // namespace brimvale
