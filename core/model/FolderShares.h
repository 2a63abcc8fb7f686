#pragma once

#include "core/model/FileNode.h"

#include <vector>

namespace brimvale {

// Gives every item under `root` its share of its folder and puts each folder's items in
// display order: one pass over the folders, for a tree whose folder sizes are already the sums.
inline void rebalanceAndSortEveryFolder(FileNode& root) {
    std::vector<FileNode*> folders{&root};
    while (!folders.empty()) {
        FileNode* folder = folders.back();
        folders.pop_back();
        folder->rebalanceChildren();
        folder->sortImmediateChildren();
        for (const auto& child : folder->children()) {
            if (!child->children().empty()) {
                folders.push_back(child.get());
            }
        }
    }
}

} // namespace brimvale
