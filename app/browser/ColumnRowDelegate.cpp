#include "app/browser/ColumnRowDelegate.h"

#include "app/browser/ColumnItemsModel.h"
#include "app/browser/ColumnListView.h"
#include "app/support/BusyIndicator.h"
#include "app/support/Symbols.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <map>
#include <string>
#include <utility>

namespace brimvale {
namespace {

struct RowLayout {
    QRect icon;
    QRect name;
    QRect change;
    QRect size;
    QRect bar;
    QRect chevron;
};

int sizeColumnWidthFor(const QStyleOptionViewItem& option) {
    if (const auto* view = qobject_cast<const ColumnListView*>(option.widget)) {
        return view->sizeColumnWidth();
    }
    return 32;
}

RowLayout layoutRow(const QStyleOptionViewItem& option, const QModelIndex& index,
                    int sizeColumnWidth) {
    const QRect rect =
        option.rect.adjusted(ColumnRowDelegate::kRowPadding, 0, -ColumnRowDelegate::kRowPadding, 0);
    const int middle = rect.center().y();
    RowLayout layout;
    layout.icon = QRect(rect.left(), middle - ColumnRowDelegate::kIconSize / 2 + 1,
                        ColumnRowDelegate::kIconSize, ColumnRowDelegate::kIconSize);
    int right = rect.right() + 1;
    layout.chevron = QRect(right - ColumnRowDelegate::kChevronSize,
                           middle - ColumnRowDelegate::kChevronSize / 2 + 1,
                           ColumnRowDelegate::kChevronSize, ColumnRowDelegate::kChevronSize);
    right = layout.chevron.left() - 6;
    const bool tail = index.data(ColumnItemsModel::IsTailRowRole).toBool();
    if (!tail) {
        layout.bar = QRect(right - ColumnRowDelegate::kBarWidth, middle - 2,
                           ColumnRowDelegate::kBarWidth, 5);
        right = layout.bar.left() - ColumnRowDelegate::kGap;
    }
    // A size wider than the shared column (a shorter largest size) still shows whole.
    const QFontMetrics sizeMetrics(ColumnRowDelegate::sizeFont(option.font));
    const int textWidth =
        sizeMetrics.horizontalAdvance(index.data(ColumnItemsModel::SizeTextRole).toString()) + 2;
    const int sizeWidth = std::max(sizeColumnWidth, textWidth);
    layout.size = QRect(right - sizeWidth, rect.top(), sizeWidth, rect.height());
    right = layout.size.left() - ColumnRowDelegate::kGap;
    // The change since an earlier scan, when the column shows one: a column of its own.
    const auto* model = qobject_cast<const ColumnItemsModel*>(index.model());
    if (model != nullptr && model->hasChanges() && !tail) {
        const int changeWidth = ColumnRowDelegate::changeColumnWidth(option.font);
        layout.change = QRect(right - changeWidth, rect.top(), changeWidth, rect.height());
        right = layout.change.left() - ColumnRowDelegate::kGap;
    }
    const int nameLeft = layout.icon.right() + 1 + 6;
    layout.name = QRect(nameLeft, rect.top(), std::max(0, right - nameLeft), rect.height());
    return layout;
}

const QIcon& cachedIcon(std::string_view symbol, const QColor& color) {
    static std::map<std::pair<std::string, QRgb>, QIcon> icons;
    auto& icon = icons[{std::string(symbol), color.rgba()}];
    if (icon.isNull()) {
        icon = Symbols::icon(symbol, color);
    }
    return icon;
}

} // namespace

ColumnRowDelegate::ColumnRowDelegate(QObject* parent)
    : QStyledItemDelegate(parent) {}

QFont ColumnRowDelegate::sizeFont(const QFont& base) {
    QFont font = base;
    if (font.pointSizeF() > 0) {
        font.setPointSizeF(std::max(7.0, font.pointSizeF() - 1.0));
    } else if (font.pixelSize() > 0) {
        font.setPixelSize(std::max(9, font.pixelSize() - 1));
    }
    font.setWeight(QFont::Normal);
    // Most interface fonts have tabular digits by default; the style hint keeps fallbacks
    // from picking a display face.
    font.setStyleHint(QFont::SansSerif, QFont::PreferDefault);
    return font;
}

int ColumnRowDelegate::sizeColumnWidth(const QFont& base, const QString& firstSizeText) {
    if (firstSizeText.isEmpty()) {
        return 32;
    }
    const QFontMetricsF metrics(sizeFont(base));
    return static_cast<int>(std::ceil(metrics.horizontalAdvance(firstSizeText))) + 2;
}

QRect ColumnRowDelegate::nameRect(const QStyleOptionViewItem& option, const QModelIndex& index,
                                  int sizeColumnWidth) {
    return layoutRow(option, index, sizeColumnWidth).name;
}

bool ColumnRowDelegate::nameIsElided(const QStyleOptionViewItem& option, const QModelIndex& index,
                                     int sizeColumnWidth) {
    const QRect rect = nameRect(option, index, sizeColumnWidth);
    const QString name = index.data(Qt::DisplayRole).toString();
    return QFontMetrics(option.font).horizontalAdvance(name) > rect.width();
}

QSize ColumnRowDelegate::sizeHint(const QStyleOptionViewItem& option,
                                  const QModelIndex& /*index*/) const {
    const int height = std::max(24, QFontMetrics(option.font).height() + 10);
    return {0, height};
}

void ColumnRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const {
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const auto* view = qobject_cast<const ColumnListView*>(option.widget);
    const bool columnFocused = view != nullptr && view->isColumnFocused();
    const bool selected = (option.state & QStyle::State_Selected) != 0;
    const bool hovered = (option.state & QStyle::State_MouseOver) != 0;
    const QPalette& palette = option.palette;
    const bool tail = index.data(ColumnItemsModel::IsTailRowRole).toBool();
    const bool isDirectory = index.data(ColumnItemsModel::IsDirectoryRole).toBool();

    // Background: a rounded highlight inset from the column's edges.
    const QRectF background = QRectF(option.rect).adjusted(4, 1, -4, -1);
    QColor text = palette.color(QPalette::Text);
    QColor secondary = palette.color(QPalette::PlaceholderText);
    if (selected) {
        QColor fill = palette.color(QPalette::Active, QPalette::Highlight);
        if (columnFocused) {
            text = palette.color(QPalette::Active, QPalette::HighlightedText);
            secondary = text;
        } else {
            fill.setAlphaF(0.28F);
        }
        painter->setPen(Qt::NoPen);
        painter->setBrush(fill);
        painter->drawRoundedRect(background, 5, 5);
    } else if (hovered) {
        QColor fill = palette.color(QPalette::Text);
        fill.setAlphaF(0.06F);
        painter->setPen(Qt::NoPen);
        painter->setBrush(fill);
        painter->drawRoundedRect(background, 5, 5);
    }

    const RowLayout layout = layoutRow(option, index, sizeColumnWidthFor(option));
    const QColor accent = palette.color(QPalette::Active, QPalette::Highlight);
    const bool onAccent = selected && columnFocused;

    // Icon.
    if (tail) {
        cachedIcon("ellipsis.circle", secondary).paint(painter, layout.icon);
    } else if (isDirectory) {
        const QColor folderColor = onAccent ? text : accent.lighter(115);
        cachedIcon("folder.fill", folderColor).paint(painter, layout.icon);
    } else {
        cachedIcon("doc.fill", onAccent ? text : secondary).paint(painter, layout.icon);
    }

    // Name.
    painter->setFont(option.font);
    painter->setPen(tail ? secondary : text);
    const QString name = index.data(Qt::DisplayRole).toString();
    const QString shown =
        QFontMetrics(option.font).elidedText(name, Qt::ElideMiddle, layout.name.width());
    painter->drawText(layout.name, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, shown);

    // Size, right-aligned.
    painter->setFont(sizeFont(option.font));
    painter->setPen(secondary);
    painter->drawText(layout.size, Qt::AlignRight | Qt::AlignVCenter | Qt::TextSingleLine,
                      index.data(ColumnItemsModel::SizeTextRole).toString());

    // Change since the earlier scan: growth in red, shrinking in green, new items in the accent.
    if (const QString change = index.data(ColumnItemsModel::ChangeTextRole).toString();
        !change.isEmpty() && !layout.change.isEmpty()) {
        const int kind = index.data(ColumnItemsModel::ChangeKindRole).toInt();
        QColor color = kind == static_cast<int>(ChangeKind::shrank)  ? QColor(0x2E, 0x8B, 0x57)
                       : kind == static_cast<int>(ChangeKind::added) ? accent
                                                                     : QColor(0xD0, 0x3B, 0x2F);
        painter->setPen(onAccent ? text : color);
        painter->drawText(layout.change, Qt::AlignRight | Qt::AlignVCenter | Qt::TextSingleLine,
                          change);
    }

    // Share of the parent; a spinner instead while the folder is being rescanned.
    const auto* node =
        reinterpret_cast<const FileNode*>(index.data(ColumnItemsModel::NodeRole).value<quintptr>());
    const bool busy =
        !tail && isDirectory && view != nullptr && node != nullptr && view->isBusy(*node);
    if (busy) {
        const int side = std::min(14, option.rect.height() - 6);
        const QRectF spinner(layout.bar.right() + 1 - side,
                             layout.bar.center().y() - side / 2.0 + 0.5, side, side);
        BusyIndicator::paintSpinner(*painter, spinner, BusyIndicator::currentPhase(),
                                    onAccent ? text : accent);
    } else if (!tail) {
        const double fraction = index.data(ColumnItemsModel::FractionRole).toDouble();
        QColor track = onAccent ? text : palette.color(QPalette::Text);
        track.setAlphaF(onAccent ? 0.3F : 0.1F);
        painter->setPen(Qt::NoPen);
        painter->setBrush(track);
        painter->drawRoundedRect(QRectF(layout.bar), 2.5, 2.5);
        if (fraction > 0) {
            const qreal filled = std::max<qreal>(2.5, layout.bar.width() * fraction);
            painter->setBrush(onAccent ? text : accent);
            painter->drawRoundedRect(
                QRectF(layout.bar.left(), layout.bar.top(), filled, layout.bar.height()), 2.5, 2.5);
        }
    }

    // Disclosure.
    if (tail) {
        cachedIcon("chevron.down", secondary).paint(painter, layout.chevron);
    } else if (isDirectory) {
        const bool expanded = view != nullptr && view->expandedNode() != nullptr &&
                              index.data(ColumnItemsModel::NodeRole).value<quintptr>() ==
                                  reinterpret_cast<quintptr>(view->expandedNode());
        QColor chevron = onAccent ? text : secondary;
        if (!expanded && !onAccent) {
            chevron.setAlphaF(0.6F);
        }
        cachedIcon("chevron.right", chevron).paint(painter, layout.chevron);
    }
    painter->restore();
}

int ColumnRowDelegate::changeColumnWidth(const QFont& base) {
    return QFontMetrics(sizeFont(base)).horizontalAdvance(QStringLiteral("\u2212888.8 MB")) + 2;
}

} // namespace brimvale
