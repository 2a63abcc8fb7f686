#include "core/insights/TreemapLayout.h"

#include "core/support/SaturatingAdd.h"

#include <algorithm>
#include <tuple>
#include <unordered_map>

namespace brimvale {
namespace {

FileCategory categoryOfNode(const FileNode& node) {
    return node.isDirectory() ? FileCategory::other : fileCategoryOf(node.name(), node.mimeType());
}

} // namespace

TreemapLayout TreemapLayout::take(const FileNodeRef& root, double width, double height,
                                  const TreemapOptions& options) {
    TreemapLayout layout;
    layout.root_ = root;
    layout.options_ = options;
    if (!root || root->size() <= 0) {
        return layout;
    }
    struct Pending {
        FileNodeRef node; // null: a rest cell
        std::int64_t size;
        std::int64_t restCount;
        double estimatedArea;
        std::int32_t parent;
        std::uint16_t depth;
    };
    std::vector<Pending> stack;
    stack.push_back({root, root->size(), 0, std::max(0.0, width * height), -1, 0});
    const double folderArea = options.minimumFolderSide * options.minimumFolderSide;
    std::vector<std::pair<std::int64_t, const FileNode*>> shown;
    while (!stack.empty()) {
        Pending pending = std::move(stack.back());
        stack.pop_back();
        const auto index = static_cast<std::int32_t>(layout.cells_.size());
        TreemapCell& cell = layout.cells_.emplace_back();
        cell.size = pending.size;
        cell.restCount = pending.restCount;
        cell.parent = pending.parent;
        cell.depth = pending.depth;
        if (!pending.node) {
            continue;
        }
        const FileNode& node = *pending.node;
        cell.isDirectory = node.isDirectory();
        cell.category = categoryOfNode(node);
        cell.node = std::move(pending.node);
        if (!node.isDirectory() || pending.depth >= options.maximumDepth ||
            pending.estimatedArea < folderArea) {
            continue;
        }
        std::int64_t childSum = 0;
        for (const FileNodeRef& child : node.children()) {
            if (child->size() > 0) {
                childSum = saturatingAdd(childSum, child->size());
            }
        }
        if (childSum <= 0) {
            continue;
        }
        shown.clear();
        std::int64_t restSize = 0;
        std::int64_t restCount = 0;
        const double areaPerByte = pending.estimatedArea / static_cast<double>(childSum);
        for (const FileNodeRef& child : node.children()) {
            const std::int64_t size = child->size();
            if (size <= 0) {
                continue;
            }
            if (static_cast<double>(size) * areaPerByte >= options.minimumCellArea) {
                shown.emplace_back(size, child.get());
            } else {
                restSize = saturatingAdd(restSize, size);
                ++restCount;
            }
        }
        // Largest first, as squarify wants; a live tree's children are not sorted yet.
        std::stable_sort(shown.begin(), shown.end(),
                         [](const auto& a, const auto& b) { return a.first > b.first; });
        cell.opened = true;
        const auto depth = static_cast<std::uint16_t>(pending.depth + 1);
        if (restSize > 0) {
            stack.push_back({nullptr, restSize, restCount,
                             static_cast<double>(restSize) * areaPerByte, index, depth});
        }
        for (auto child = shown.rbegin(); child != shown.rend(); ++child) {
            stack.push_back({FileNodeRef(const_cast<FileNode*>(child->second)), child->first, 0,
                             static_cast<double>(child->first) * areaPerByte, index, depth});
        }
    }
    const auto count = static_cast<std::uint32_t>(layout.cells_.size());
    for (std::uint32_t i = count; i-- > 0;) {
        TreemapCell& cell = layout.cells_[i];
        cell.subtreeEnd = std::max(cell.subtreeEnd, i + 1);
        if (cell.parent >= 0) {
            TreemapCell& parent = layout.cells_[static_cast<std::size_t>(cell.parent)];
            parent.subtreeEnd = std::max(parent.subtreeEnd, cell.subtreeEnd);
        }
    }
    return layout;
}

TreemapRect TreemapLayout::inside(const TreemapCell& cell) const {
    TreemapRect rect = cell.rect;
    const double padding = std::min({options_.padding, rect.width / 2, rect.height / 2});
    rect.x += padding;
    rect.y += padding;
    rect.width -= 2 * padding;
    rect.height -= 2 * padding;
    if (cell.hasHeader) {
        rect.y += options_.headerHeight;
        rect.height -= options_.headerHeight;
    }
    rect.width = std::max(0.0, rect.width);
    rect.height = std::max(0.0, rect.height);
    return rect;
}

void TreemapLayout::layOut(double width, double height) {
    width_ = std::max(0.0, width);
    height_ = std::max(0.0, height);
    if (cells_.empty()) {
        return;
    }
    place(0, {0, 0, width_, height_}, true);
}

void TreemapLayout::place(std::size_t rootIndex, TreemapRect rootRect, bool rootVisible) {
    std::vector<std::tuple<std::size_t, TreemapRect, bool>> stack{
        {rootIndex, rootRect, rootVisible}};
    std::vector<double> sizes;
    std::vector<std::size_t> children;
    while (!stack.empty()) {
        const auto [index, rect, visible] = stack.back();
        stack.pop_back();
        TreemapCell& cell = cells_[index];
        cell.rect = rect;
        cell.visible = visible;
        const bool roomy =
            rect.width >= options_.minimumFolderSide && rect.height >= options_.minimumFolderSide;
        cell.hasHeader = cell.opened && options_.headerHeight > 0 &&
                         rect.height >= 3 * options_.headerHeight + 2 * options_.padding &&
                         rect.width >= 3 * options_.headerHeight;
        sizes.clear();
        children.clear();
        for (std::size_t child = index + 1; child < cell.subtreeEnd;
             child = cells_[child].subtreeEnd) {
            children.push_back(child);
            sizes.push_back(static_cast<double>(cells_[child].size));
        }
        const TreemapRect area = inside(cell);
        const bool childrenVisible = visible && roomy && area.width > 0 && area.height > 0;
        const std::vector<TreemapRect> rects =
            childrenVisible ? squarify(sizes, area)
                            : std::vector<TreemapRect>(children.size(), {area.x, area.y, 0, 0});
        for (std::size_t i = children.size(); i-- > 0;) {
            stack.emplace_back(children[i], rects[i], childrenVisible);
        }
    }
}

int TreemapLayout::cellAt(double x, double y) const {
    if (cells_.empty() || !cells_[0].rect.contains(x, y)) {
        return -1;
    }
    std::size_t current = 0;
    for (;;) {
        const TreemapCell& cell = cells_[current];
        std::size_t next = 0;
        for (std::size_t child = current + 1; child < cell.subtreeEnd;
             child = cells_[child].subtreeEnd) {
            if (cells_[child].visible && cells_[child].rect.contains(x, y)) {
                next = child;
                break;
            }
        }
        if (next == 0) {
            return static_cast<int>(current);
        }
        current = next;
    }
}

int TreemapLayout::cellShowing(const FileNode* node) const {
    if (cells_.empty()) {
        return -1;
    }
    std::unordered_map<const FileNode*, int> shown;
    for (const FileNode* ancestor = node; ancestor != nullptr; ancestor = ancestor->parent()) {
        shown.emplace(ancestor, 0);
    }
    // Descend from the root along the node's ancestors, as far as the map shows them.
    if (!shown.contains(cells_[0].node.get())) {
        return -1;
    }
    std::size_t current = 0;
    for (;;) {
        const TreemapCell& cell = cells_[current];
        if (cell.node.get() == node) {
            return static_cast<int>(current);
        }
        std::size_t next = 0;
        for (std::size_t child = current + 1; child < cell.subtreeEnd;
             child = cells_[child].subtreeEnd) {
            if (cells_[child].visible && cells_[child].node &&
                shown.contains(cells_[child].node.get())) {
                next = child;
                break;
            }
        }
        if (next == 0) {
            return static_cast<int>(current);
        }
        current = next;
    }
}

} // namespace brimvale
