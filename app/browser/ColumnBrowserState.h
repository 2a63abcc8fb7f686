#pragma once

#include "core/model/FileNode.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// What the column browser shows, without any widget: the tree's root, the selected node of
// each column (the column path), the column the arrow keys act on, and the column widths.
// Column 0 lists the root's children; each selected folder with children opens one more
// column to its right. GUI thread only; holds the nodes it shows, never copies the tree.
class ColumnBrowserState {
public:
    static constexpr int defaultColumnWidth = 260;
    static constexpr int minColumnWidth = 140;
    static constexpr int maxColumnWidth = 640;
    static constexpr int previewPanelWidth = 280;

    enum class Key { left, right };
    // Who made a selection: the user's choices are where the browser returns when the tree is
    // replaced (a rescan); the browser's own (the largest item, shown first) are not.
    enum class Origin { user, automatic };

    explicit ColumnBrowserState(FileNodeRef root = {});

    const FileNodeRef& root() const { return root_; }
    const std::vector<FileNodeRef>& columnPath() const { return columnPath_; }
    // The deepest selected node; null when nothing is selected.
    FileNodeRef deepestSelection() const;
    // The folder each column lists: the root, then every selected folder that has children,
    // up to the first selected node that is not one.
    std::vector<FileNodeRef> columnParents() const;
    int columnCount() const;

    int keyboardColumn() const { return keyboardColumn_; }
    // A column got the keyboard focus (a click): keys act on it.
    void focusColumn(int depth);

    // The selection of column `depth`, or null.
    FileNodeRef selection(int depth) const;
    // Selects `node` in column `depth`: the path is cut to `depth` entries, `node` appended,
    // and keys then act on that column. A null node is ignored (a column cannot clear its own
    // selection). Returns whether the path changed.
    bool setSelection(int depth, FileNodeRef node, Origin origin = Origin::user);

    // Left and right arrows on the keyboard column; returns whether the key was handled.
    // Left leaves the column (its selection is dropped, the one to the left stays); right
    // enters the selected folder, selecting its largest item when nothing is selected there.
    bool handleKey(Key key);
    void syncKeyboardColumnToTreeFocus(int columnCount);
    // When nothing is selected, selects the root's largest child; returns whether it did.
    bool selectFirstRootChildIfNeeded();

    // Shows another tree, or the same root after it changed in place (a live scan). The path
    // becomes the user's last chosen path, followed by names from the root as far as the tree
    // has it (a rescan's tree opens where the old one was, and a growing live tree extends the
    // path as the chosen folders appear); without one, the same root keeps every selection
    // still in the tree. Returns whether the path changed.
    bool replaceRoot(FileNodeRef root);
    // Another account's tree comes next: nothing chosen so far carries over.
    void forgetChosenPath() { chosenNames_.clear(); }

    // Column widths, in device-independent pixels, kept while the column exists.
    int columnWidth(int index) const;
    void setColumnWidth(int index, int width);
    void syncColumnWidthsToColumnCount(int count);
    std::size_t storedWidthCount() const { return columnWidths_.size(); }

    // The largest child of `folder` in display order (size, then the order of the children,
    // which for a finished tree is already sorted); null when it has none.
    static FileNodeRef firstChildInDisplayOrder(const FileNode& folder);

    // Where trace lines go (BRIMVALE_TREE_TRACE); none by default.
    void setTrace(std::function<void(std::string_view)> trace) { trace_ = std::move(trace); }

private:
    void traceLine(std::string_view line) const;
    static bool opensColumn(const FileNode& node);
    void rememberChosenPath();
    // The nodes that `names` lead to from the root, as far as they match.
    std::vector<FileNodeRef> followNames(const std::vector<std::string>& names) const;

    FileNodeRef root_;
    std::vector<FileNodeRef> columnPath_;
    // The names of the path the user chose last, from the root down.
    std::vector<std::string> chosenNames_;
    int keyboardColumn_ = 0;
    std::vector<int> columnWidths_;
    std::function<void(std::string_view)> trace_;
};

} // namespace brimvale
