#pragma once

#include "core/model/FileNode.h"

#include <string_view>

namespace brimvale {

// The node of `root`'s tree whose FileNode::path() is `path` (a file or a folder), found by
// walking down from the root; null when the tree has none.
FileNode* findNodeByPath(FileNode& root, std::string_view path);

// Takes `node` out of its folder, as when the item is gone from the disk or the account: its
// size comes off every ancestor (never below zero), each ancestor's children are re-sorted and
// their shares of the folder recomputed. The node keeps its own subtree and loses its parent
// link. False, and nothing changed, for a node without a folder (a root).
bool removeFromTree(FileNode& node);

} // namespace brimvale
