#pragma once

#include "core/model/FileNode.h"

#include <cstddef>
#include <vector>

namespace brimvale {

// The `count` largest files of the subtree under `folder` (the folder itself when it is a
// file), largest first; files of equal size in tree order (pre-order, children as stored).
// Files of no size are never listed. One pass with a heap of at most `count` entries; reads
// the tree on the calling thread, which must own it.
std::vector<FileNodeRef> largestFiles(const FileNode& folder, std::size_t count);

} // namespace brimvale
