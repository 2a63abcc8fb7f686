#pragma once

#include "core/model/FileNode.h"
#include "core/rclone/RcloneEntry.h"

#include <cstdint>
#include <string>
#include <vector>

namespace brimvale {

// Merging one folder's listing into a scan tree. The tree is used by one thread at a time: the
// main thread once it is on screen.

// Where a listing came from, for the nodes it makes.
struct ListingMergeContext {
    std::string remotePath; // the rclone target that was listed, such as "gdrive:Photos"
    std::string remoteID;
    std::int64_t scanSession = 0;
};

// Merges `entries` (in listing order) into `node`: every entry becomes a new node (new id,
// marked with the scan session) that replaces the child of the same name in place, keeping
// that child's subtree when the kind (file or folder) is unchanged, or is appended. Children
// not in the listing stay until pruning. Parent links below `node` are re-set. Returns the new
// folder nodes in listing order. Sizes are not rolled up.
std::vector<FileNodeRef> mergeListingEntries(const std::vector<RcloneEntry>& entries,
                                             FileNode& node, const ListingMergeContext& context);

// One level of roll-up during a scan: a folder's size becomes the sum of its children's
// current sizes (stopping at the largest size), then its children are rebalanced and sorted.
// Files are left alone.
void refreshAggregatedSize(FileNode& node);

} // namespace brimvale
