#pragma once

#include "app/browser/ColumnBrowserState.h"
#include "core/model/FileNode.h"

#include <QTimer>
#include <QWidget>

#include <memory>
#include <set>
#include <string>
#include <vector>

class QFrame;
class QHBoxLayout;
class QKeyEvent;
class QMenu;
class QScrollArea;

namespace brimvale {

class ChangeIndex;
class ColumnItemsModel;
class ColumnListView;
class ColumnResizeSplitter;
class HoverNameChip;
class PreviewPanel;
class ScannerViewModel;
class SelectionDebouncer;

// The column browser over one scan tree: column 0 lists the root's children, each selected
// folder opens the next column, and the preview panel at the right sums up the deepest
// selection. Columns are lazy list views over the tree (one model per column, no copy of the
// tree); the selection reaches the coordinator 80 ms after the last change. Keys: Left and
// Right move between columns, Up, Down, Home, End, Page Up and Page Down within one, Return
// opens, Ctrl+Down opens the item outside the application (its web page, or the file manager).
// GUI thread only.
class ColumnBrowser final : public QWidget {
    Q_OBJECT
public:
    explicit ColumnBrowser(ScannerViewModel& viewModel, QWidget* parent = nullptr);
    ~ColumnBrowser() override;

    // Shows `root`: a new tree, or the same root after it changed in place (a live scan's
    // refresh). Null empties the browser.
    void setRoot(FileNodeRef root);
    // Empties the browser and forgets where the user was (another account comes next).
    void clear();
    const ColumnBrowserState& state() const { return state_; }

    int columnCount() const { return static_cast<int>(columns_.size()); }
    ColumnListView* columnView(int depth) const;
    ColumnItemsModel* columnModel(int depth) const;
    ColumnResizeSplitter* splitter(int depth) const;
    PreviewPanel* previewPanel() const { return preview_; }
    SelectionDebouncer& debouncer() const { return *debouncer_; }
    QScrollArea* scrollArea() const { return scrollArea_; }

    bool previewPaneVisible() const { return previewPaneVisible_; }
    void setPreviewPaneVisible(bool visible);
    // Whether the preview panel is on screen (visible and something is selected).
    bool previewPanelShown() const;
    // While a scan runs, the tree on screen is still being listed: its items are not shown in
    // the preview (which would keep the item chosen in the previous tree).
    void setPreviewHeldBack(bool heldBack);

    // The folders of the tree being rescanned (tree paths): their rows show a spinner, and
    // their context menu cannot start another rescan of them.
    void setRefreshingFolders(std::set<std::string> folders);
    const std::set<std::string>& refreshingFolders() const { return refreshingFolders_; }
    // The context menu of a row, as a right click shows it (files: Open, Show/Open in
    // Browser, Copy; folders: Show/Open in Browser, Rescan This Folder, Copy; then the
    // deletion items). The deletion items act on `selection` when given (the selected rows of
    // the column, the node among them), else on the node.
    std::unique_ptr<QMenu> rowMenu(const FileNodeRef& node,
                                   std::vector<FileNodeRef> selection = {});

    // What changed since an earlier scan, shown in every column (null: nothing), and whether
    // columns list the largest changes first.
    void setChanges(std::shared_ptr<const ChangeIndex> changes, bool sortByChange);
    const std::shared_ptr<const ChangeIndex>& changes() const { return changes_; }

    // Selects `node` in column `depth` as a click does.
    void selectNode(int depth, const FileNodeRef& node);
    // Selects `node` wherever it is in the tree, opening the columns of the folders above it
    // (a pick in the map). Nothing happens for the root or a node outside the tree.
    void selectPath(const FileNodeRef& node);
    // Opens the deepest selection outside the application (Ctrl+Down).
    void openSelectionExternally();

signals:
    void previewPaneVisibilityChanged(bool visible);
    // The column path changed (at once, before the debounced publication).
    void pathChanged();

private:
    struct Column {
        ColumnListView* view = nullptr;
        ColumnResizeSplitter* splitter = nullptr;
        ColumnItemsModel* model = nullptr;
    };

    bool isLocal() const;
    Column makeColumn(int depth);
    void syncColumns(bool scrollToEnd);
    void applyColumnWidth(int depth);
    void pathDidChange(bool scrollToEnd);
    void scheduleHorizontalScroll();
    void updatePreview();

    bool handleColumnKey(ColumnListView& view, QKeyEvent& event);
    bool moveWithinColumn(int depth, int key);
    void activateRow(ColumnListView& view, int row);
    void openRow(ColumnListView& view, int row);
    void showRowMenu(ColumnListView& view, int row, const QPoint& globalPosition);
    void showNameChip(ColumnListView& view, int row, const QRect& rowRect, bool elided);

    ScannerViewModel& viewModel_;
    ColumnBrowserState state_;
    std::vector<Column> columns_;
    QScrollArea* scrollArea_;
    QWidget* strip_;
    QHBoxLayout* stripLayout_;
    QFrame* previewDivider_;
    PreviewPanel* preview_;
    HoverNameChip* nameChip_;
    std::unique_ptr<SelectionDebouncer> debouncer_;
    bool previewPaneVisible_ = true;
    bool previewHeldBack_ = false;
    // The first column's selection was made by the browser, not the user: while a live tree
    // grows it follows the largest item.
    bool selectionIsAutomatic_ = false;
    int lastKeyboardColumn_ = 0;
    bool horizontalScrollPending_ = false;
    // The strip keeps its end in view until the user scrolls it: the width it scrolls to
    // arrives with layout changes after the request.
    bool keepEndInView_ = false;
    std::set<std::string> refreshingFolders_;
    std::shared_ptr<const ChangeIndex> changes_;
    bool sortByChange_ = false;
    // Turns the spinners of rows being rescanned.
    QTimer spinnerTimer_;
};

} // namespace brimvale
