#include "app/browser/ColumnBrowserState.h"

#include <algorithm>
#include <string>

namespace brimvale {

ColumnBrowserState::ColumnBrowserState(FileNodeRef root)
    : root_(std::move(root)) {}

void ColumnBrowserState::traceLine(std::string_view line) const {
    if (trace_) {
        trace_(line);
    }
}

bool ColumnBrowserState::opensColumn(const FileNode& node) {
    return node.isDirectory() && !node.children().empty();
}

FileNodeRef ColumnBrowserState::deepestSelection() const {
    return columnPath_.empty() ? FileNodeRef() : columnPath_.back();
}

std::vector<FileNodeRef> ColumnBrowserState::columnParents() const {
    std::vector<FileNodeRef> parents;
    if (!root_) {
        return parents;
    }
    parents.push_back(root_);
    for (const auto& node : columnPath_) {
        if (!opensColumn(*node)) {
            break;
        }
        parents.push_back(node);
    }
    return parents;
}

int ColumnBrowserState::columnCount() const {
    return static_cast<int>(columnParents().size());
}

void ColumnBrowserState::focusColumn(int depth) {
    keyboardColumn_ = std::max(0, depth);
}

FileNodeRef ColumnBrowserState::selection(int depth) const {
    if (depth < 0 || static_cast<std::size_t>(depth) >= columnPath_.size()) {
        return {};
    }
    return columnPath_[static_cast<std::size_t>(depth)];
}

void ColumnBrowserState::rememberChosenPath() {
    chosenNames_.clear();
    for (const auto& node : columnPath_) {
        chosenNames_.emplace_back(node->name());
    }
}

std::vector<FileNodeRef>
ColumnBrowserState::followNames(const std::vector<std::string>& names) const {
    std::vector<FileNodeRef> path;
    const FileNode* folder = root_.get();
    for (const auto& name : names) {
        if (folder == nullptr) {
            break;
        }
        FileNodeRef match;
        for (const auto& child : folder->children()) {
            if (child->name() == name) {
                match = child;
                break;
            }
        }
        if (!match) {
            break;
        }
        folder = match.get();
        path.push_back(std::move(match));
    }
    return path;
}

bool ColumnBrowserState::setSelection(int depth, FileNodeRef node, Origin origin) {
    if (!node) {
        traceLine("selection depth=" + std::to_string(depth) + " set nil ignored");
        return false;
    }
    if (depth < 0 || static_cast<std::size_t>(depth) > columnPath_.size()) {
        return false;
    }
    const auto index = static_cast<std::size_t>(depth);
    const bool unchanged = index + 1 == columnPath_.size() && columnPath_[index] == node;
    keyboardColumn_ = depth;
    if (unchanged) {
        return false;
    }
    traceLine("selection depth=" + std::to_string(depth) + " node=" + std::string(node->name()));
    columnPath_.resize(index);
    columnPath_.push_back(std::move(node));
    if (origin == Origin::user) {
        rememberChosenPath();
    }
    return true;
}

bool ColumnBrowserState::handleKey(Key key) {
    const int k = keyboardColumn_;
    bool handled = false;
    if (key == Key::left) {
        if (k >= 1) {
            keyboardColumn_ = k - 1;
            columnPath_.resize(std::min(columnPath_.size(), static_cast<std::size_t>(k)));
            traceLine("keyPress left column=" + std::to_string(keyboardColumn_));
            handled = true;
        }
    } else {
        const FileNodeRef entry = selection(k);
        if (entry && opensColumn(*entry)) {
            keyboardColumn_ = k + 1;
            if (!selection(keyboardColumn_)) {
                setSelection(keyboardColumn_, firstChildInDisplayOrder(*entry));
            }
            traceLine("keyPress right column=" + std::to_string(keyboardColumn_));
            handled = true;
        }
    }
    if (handled) {
        rememberChosenPath();
        syncKeyboardColumnToTreeFocus(columnCount());
    }
    return handled;
}

void ColumnBrowserState::syncKeyboardColumnToTreeFocus(int count) {
    keyboardColumn_ = std::clamp(keyboardColumn_, 0, std::max(0, count - 1));
}

bool ColumnBrowserState::selectFirstRootChildIfNeeded() {
    if (!columnPath_.empty() || !root_) {
        return false;
    }
    FileNodeRef first = firstChildInDisplayOrder(*root_);
    if (!first) {
        return false;
    }
    return setSelection(0, std::move(first), Origin::automatic);
}

bool ColumnBrowserState::replaceRoot(FileNodeRef root) {
    const std::vector<FileNodeRef> before = columnPath_;
    const bool sameRoot = root == root_;
    root_ = std::move(root);
    std::vector<FileNodeRef> chosen = followNames(chosenNames_);
    if (!chosen.empty()) {
        columnPath_ = std::move(chosen);
    } else if (sameRoot) {
        // The tree changed in place: keep each selection while it is still a child of the one
        // before it (pruned nodes lose their parent link; a node swapped out by a folder
        // refresh keeps its link but is no longer among its parent's children).
        const FileNode* parent = root_.get();
        std::size_t kept = 0;
        for (; kept < columnPath_.size(); ++kept) {
            const FileNodeRef& node = columnPath_[kept];
            if (parent == nullptr || node->parent() != parent ||
                std::find(parent->children().begin(), parent->children().end(), node) ==
                    parent->children().end()) {
                break;
            }
            parent = node.get();
        }
        columnPath_.resize(kept);
    } else {
        columnPath_.clear();
    }
    if (!sameRoot) {
        traceLine("root replaced; kept " + std::to_string(columnPath_.size()) + " of " +
                  std::to_string(chosenNames_.size()) + " chosen selections");
    }
    syncKeyboardColumnToTreeFocus(std::max<int>(1, static_cast<int>(columnPath_.size())));
    return columnPath_ != before;
}

int ColumnBrowserState::columnWidth(int index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= columnWidths_.size()) {
        return defaultColumnWidth;
    }
    return std::clamp(columnWidths_[static_cast<std::size_t>(index)], minColumnWidth,
                      maxColumnWidth);
}

void ColumnBrowserState::setColumnWidth(int index, int width) {
    if (index < 0 || static_cast<std::size_t>(index) >= columnWidths_.size()) {
        return;
    }
    columnWidths_[static_cast<std::size_t>(index)] =
        std::clamp(width, minColumnWidth, maxColumnWidth);
}

void ColumnBrowserState::syncColumnWidthsToColumnCount(int count) {
    columnWidths_.resize(static_cast<std::size_t>(std::max(0, count)), defaultColumnWidth);
}

FileNodeRef ColumnBrowserState::firstChildInDisplayOrder(const FileNode& folder) {
    const auto& children = folder.children();
    if (children.empty()) {
        return {};
    }
    // The first of the largest: what a stable sort by size, descending, puts first.
    auto best = children.begin();
    for (auto child = children.begin() + 1; child != children.end(); ++child) {
        if ((*child)->size() > (*best)->size()) {
            best = child;
        }
    }
    return *best;
}

} // namespace brimvale
