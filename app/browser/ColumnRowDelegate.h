#pragma once

#include <QStyledItemDelegate>

namespace brimvale {

// Paints the rows of a browser column: icon, the name on one line, the size right-aligned in
// the column's shared size column (monospaced digits), a bar for the share of the parent and,
// for folders, a disclosure chevron (a folder being rescanned shows a spinner for its bar); the
// tail row reads "N smaller items" with the hidden bytes and a downward chevron. Selected rows are
// highlighted, more strongly in the column that has the keyboard.
class ColumnRowDelegate final : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit ColumnRowDelegate(QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    // The font of sizes: the interface font one point smaller, digits of equal width.
    static QFont sizeFont(const QFont& base);
    // The shared size-column width of a column whose first (largest) item reads
    // `firstSizeText`: its width in the size font, rounded up, plus 2; 32 for an empty column.
    static int sizeColumnWidth(const QFont& base, const QString& firstSizeText);
    // The room the change since an earlier scan takes in a row, when a column shows it.
    static int changeColumnWidth(const QFont& base);
    // Where the name is drawn in a row, and whether it had to be shortened there.
    static QRect nameRect(const QStyleOptionViewItem& option, const QModelIndex& index,
                          int sizeColumnWidth);
    static bool nameIsElided(const QStyleOptionViewItem& option, const QModelIndex& index,
                             int sizeColumnWidth);

    static constexpr int kRowPadding = 8;
    static constexpr int kIconSize = 16;
    static constexpr int kBarWidth = 36;
    static constexpr int kChevronSize = 10;
    static constexpr int kGap = 8;
};

} // namespace brimvale
