#pragma once

#include "core/insights/FileCategory.h"
#include "core/insights/Squarify.h"
#include "core/model/FileNode.h"

#include <cstdint>
#include <vector>

namespace brimvale {

struct TreemapOptions {
    double padding = 2;            // between a folder's edge and what it holds
    double headerHeight = 0;       // a folder's name strip above its contents; 0: none
    double minimumCellArea = 6;    // items that would get less are folded into the rest cell
    double minimumFolderSide = 10; // folders narrower or lower than this are not opened
    int maximumDepth = 64;
};

// One rectangle of the map: an item, or the folded rest of a folder (the items too small to
// draw, summed).
struct TreemapCell {
    TreemapRect rect;
    FileNodeRef node;             // null for a folded rest
    std::int64_t size = 0;        // positive
    std::int64_t restCount = 0;   // items folded into a rest cell
    std::uint32_t subtreeEnd = 0; // one past the last cell inside this one
    std::int32_t parent = -1;
    std::uint16_t depth = 0;
    FileCategory category = FileCategory::other;
    bool isDirectory = false;
    bool hasHeader = false;
    bool opened = false; // its children are laid out inside it
    bool visible = true; // false inside a folder that turned out too small to open
};

// A nested squarified treemap of one folder, in two steps:
// - take(): on the thread that owns the tree (a live tree changes under any other), copy what
//   can be seen at a given size: the items whose share of the area, estimated from their
//   sizes, reaches the minimum cell area, and one rest cell per folder for what is smaller.
//   Its cost is bounded by the pixels, not by the tree: a million items give some ten thousand
//   cells. Cells hold their nodes, so the copy stays valid whatever happens to the tree.
// - layOut(): on any thread, places every cell for a width and height: children tile their
//   folder's inside (its rectangle less padding and header) exactly, in proportion to size.
// Cells are in pre-order: a folder before what it holds, children largest first, the rest last.
class TreemapLayout {
public:
    TreemapLayout() = default;

    // The cells for a map of `width` × `height`, not yet placed.
    static TreemapLayout take(const FileNodeRef& root, double width, double height,
                              const TreemapOptions& options);
    // Places the cells in a map of `width` × `height` (any size: the cells stay the same).
    void layOut(double width, double height);

    const std::vector<TreemapCell>& cells() const { return cells_; }
    const TreemapOptions& options() const { return options_; }
    const FileNodeRef& root() const { return root_; }
    double width() const { return width_; }
    double height() const { return height_; }

    // The deepest visible cell at a point; -1 outside.
    int cellAt(double x, double y) const;
    // The cell showing `node`, or its nearest ancestor shown; -1 when neither is in the map.
    // Reads parent links: call it on the tree's thread.
    int cellShowing(const FileNode* node) const;
    // The inside of a folder cell, where its children go.
    TreemapRect inside(const TreemapCell& cell) const;

private:
    void place(std::size_t index, TreemapRect rect, bool visible);

    FileNodeRef root_;
    TreemapOptions options_;
    std::vector<TreemapCell> cells_;
    double width_ = 0;
    double height_ = 0;
};

} // namespace brimvale
