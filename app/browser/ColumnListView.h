#pragma once

#include "core/model/FileNode.h"

#include <QListView>
#include <QTimer>

#include <functional>
#include <set>
#include <string>

namespace brimvale {

class ColumnItemsModel;

// One column of the browser: a lazy list over its ColumnItemsModel (uniform rows, so a column
// of 100,000 items costs nothing until scrolled). Keys go to the browser first (it owns the
// path); clicks select through the browser; a click on the tail row reveals more items.
class ColumnListView final : public QListView {
    Q_OBJECT
public:
    ColumnListView(int depth, QWidget* parent = nullptr);

    int depth() const { return depth_; }
    void setDepth(int depth) { depth_ = depth; }
    ColumnItemsModel* itemsModel() const;
    void setItemsModel(ColumnItemsModel* model);

    // The shared size-column width of the rows (measured on the largest item).
    int sizeColumnWidth() const { return sizeColumnWidth_; }
    void updateSizeColumnWidth();
    // Whether this column has the keyboard (its selection is highlighted strongly).
    bool isColumnFocused() const { return columnFocused_; }
    void setColumnFocused(bool focused);
    // The folder of this column that is open in the next column (its disclosure is open).
    const FileNode* expandedNode() const { return expandedNode_; }
    void setExpandedNode(const FileNode* node);

    // The folders being rescanned (tree paths), owned by the browser; their rows show a
    // spinner in place of the share bar. Null: none.
    void setBusyFolders(const std::set<std::string>* folders) { busyFolders_ = folders; }
    bool isBusy(const FileNode& node) const {
        return busyFolders_ != nullptr && !busyFolders_->empty() && node.isDirectory() &&
               busyFolders_->contains(node.path());
    }

    // Shows `row` as the selection without announcing it; -1 clears it.
    void showSelectedRow(int row);

    // Handlers installed by the browser. A key handler returns whether it took the key.
    std::function<bool(ColumnListView&, QKeyEvent&)> keyHandler;
    std::function<void(ColumnListView&, int row)> rowClicked;
    std::function<void(ColumnListView&, int row)> rowDoubleClicked;
    std::function<void(ColumnListView&, int row, const QPoint& globalPosition)> contextMenuAt;
    // The hovered row changed (-1: none); `rowRect` is in this view's viewport.
    std::function<void(ColumnListView&, int row, const QRect& rowRect, bool nameElided)>
        hoverChanged;

    // The row under the pointer, -1 when none.
    int hoveredRow() const { return hoveredRow_; }

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void startDrag(Qt::DropActions supportedActions) override;

private:
    void setHoveredRow(int row);

    int depth_;
    int sizeColumnWidth_ = 32;
    bool columnFocused_ = false;
    const FileNode* expandedNode_ = nullptr;
    const std::set<std::string>* busyFolders_ = nullptr;
    int hoveredRow_ = -1;
    QPoint pressPosition_;
};

} // namespace brimvale
