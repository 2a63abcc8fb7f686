#pragma once

#include "core/model/FileNode.h"

namespace brimvale {

// Gives every item under `root` its share of its folder and puts each folder's items in
// display order: one pass over the folders, for a tree whose folder sizes are already the sums.
// A large tree is shared out among the cores by subtrees; no one else may use it meanwhile.
void rebalanceAndSortEveryFolder(FileNode& root);

} // namespace brimvale
