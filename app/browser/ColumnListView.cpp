#include "app/browser/ColumnListView.h"

#include "app/browser/ColumnItemsModel.h"
#include "app/browser/ColumnRowDelegate.h"

#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScrollBar>

namespace brimvale {

ColumnListView::ColumnListView(int depth, QWidget* parent)
    : QListView(parent)
    , depth_(depth) {
    setItemDelegate(new ColumnRowDelegate(this));
    setUniformItemSizes(true);
    // Ctrl and Shift clicks select several rows (for the row menu's deletion items).
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setFrameShape(QFrame::NoFrame);
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setDragEnabled(true);
    setDragDropMode(QAbstractItemView::DragOnly);
    setDefaultDropAction(Qt::CopyAction);
    setAttribute(Qt::WA_MacShowFocusRect, false);
    setAccessibleName(tr("Column %1").arg(depth + 1));
}

ColumnItemsModel* ColumnListView::itemsModel() const {
    return qobject_cast<ColumnItemsModel*>(model());
}

void ColumnListView::setItemsModel(ColumnItemsModel* model) {
    setModel(model);
    updateSizeColumnWidth();
}

void ColumnListView::updateSizeColumnWidth() {
    const ColumnItemsModel* model = itemsModel();
    sizeColumnWidth_ = ColumnRowDelegate::sizeColumnWidth(
        font(), model == nullptr ? QString() : model->firstItemSizeText());
}

void ColumnListView::setColumnFocused(bool focused) {
    if (columnFocused_ != focused) {
        columnFocused_ = focused;
        viewport()->update();
    }
}

void ColumnListView::setExpandedNode(const FileNode* node) {
    if (expandedNode_ != node) {
        expandedNode_ = node;
        viewport()->update();
    }
}

void ColumnListView::showSelectedRow(int row) {
    QItemSelectionModel* selection = selectionModel();
    if (selection == nullptr) {
        return;
    }
    const QModelIndex target = row >= 0 ? model()->index(row, 0) : QModelIndex();
    if (!target.isValid()) {
        selection->clearSelection();
        selection->setCurrentIndex(QModelIndex(), QItemSelectionModel::NoUpdate);
        return;
    }
    if (selection->currentIndex() != target || !selection->isSelected(target)) {
        selection->setCurrentIndex(target, QItemSelectionModel::ClearAndSelect);
    }
}

void ColumnListView::keyPressEvent(QKeyEvent* event) {
    if (keyHandler && keyHandler(*this, *event)) {
        event->accept();
        return;
    }
    QListView::keyPressEvent(event);
}

void ColumnListView::mousePressEvent(QMouseEvent* event) {
    pressPosition_ = event->position().toPoint();
    const QModelIndex index = indexAt(pressPosition_);
    if (!hasFocus()) {
        setFocus(Qt::MouseFocusReason);
    }
    if (event->button() == Qt::LeftButton && index.isValid() &&
        (event->modifiers() & (Qt::ControlModifier | Qt::ShiftModifier))) {
        QListView::mousePressEvent(event);
        return;
    }
    if (event->button() == Qt::LeftButton && index.isValid() && rowClicked) {
        rowClicked(*this, index.row());
        // The drag start position for a drag of this row.
        QAbstractItemView::mousePressEvent(event);
        return;
    }
    if (event->button() == Qt::LeftButton) {
        return;
    }
    QListView::mousePressEvent(event);
}

void ColumnListView::mouseDoubleClickEvent(QMouseEvent* event) {
    const QModelIndex index = indexAt(event->position().toPoint());
    if (event->button() == Qt::LeftButton && index.isValid() && rowDoubleClicked) {
        rowDoubleClicked(*this, index.row());
        event->accept();
        return;
    }
    QListView::mouseDoubleClickEvent(event);
}

void ColumnListView::mouseMoveEvent(QMouseEvent* event) {
    const QModelIndex index = indexAt(event->position().toPoint());
    setHoveredRow(index.isValid() ? index.row() : -1);
    QListView::mouseMoveEvent(event);
}

void ColumnListView::leaveEvent(QEvent* event) {
    setHoveredRow(-1);
    QListView::leaveEvent(event);
}

void ColumnListView::contextMenuEvent(QContextMenuEvent* event) {
    const QModelIndex index = indexAt(event->pos());
    if (index.isValid() && contextMenuAt) {
        contextMenuAt(*this, index.row(), event->globalPos());
        event->accept();
    }
}

void ColumnListView::focusInEvent(QFocusEvent* event) {
    QListView::focusInEvent(event);
}

void ColumnListView::scrollContentsBy(int dx, int dy) {
    QListView::scrollContentsBy(dx, dy);
    if (dy != 0) {
        setHoveredRow(-1);
    }
}

void ColumnListView::startDrag(Qt::DropActions supportedActions) {
    setHoveredRow(-1);
    QListView::startDrag(supportedActions);
}

void ColumnListView::setHoveredRow(int row) {
    if (row == hoveredRow_) {
        return;
    }
    hoveredRow_ = row;
    if (!hoverChanged) {
        return;
    }
    if (row < 0) {
        hoverChanged(*this, -1, {}, false);
        return;
    }
    const QModelIndex index = model()->index(row, 0);
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    option.rect = visualRect(index);
    const bool elided = ColumnRowDelegate::nameIsElided(option, index, sizeColumnWidth_);
    hoverChanged(*this, row, option.rect, elided);
}

} // namespace brimvale
