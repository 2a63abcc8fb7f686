#pragma once

#include "core/model/FileNode.h"
#include "core/persistence/bplist/StringColumn.h"

#include <cstdint>
#include <string>
#include <vector>

namespace brimvale {

// A scan tree flattened into parallel columns, one entry per node in pre-order (children in
// their stored order); node 0 is the root. This is what a cache file holds.
struct CacheSnapshot {
    std::string rootPath;
    std::string rootName;
    StringColumn names;
    std::vector<std::int32_t> parents; // index of each node's parent; -1 for the root
    std::vector<std::uint8_t> isDirs;  // 0 or 1
    std::vector<std::int64_t> sizes;
    std::vector<double> modTimes; // seconds since 2001-01-01 00:00:00 UTC; 0.0 for none
    StringColumn pids;            // provider ids; "" for none
    StringColumn mimes;           // MIME types; "" for none
    // The tree of a scan that did not finish (stopped, or a checkpoint of a running scan).
    bool partial = false;

    std::size_t nodeCount() const { return names.size(); }
};

// Flattens the tree under `root`, shared out among the cores by subtrees when it is large. A tree
// of 2^31 nodes or more is a fatal error: parent indices are 32 bits in the format. No one may
// change the tree meanwhile.
CacheSnapshot snapshotForCache(const FileNode& root);

// Makes each folder at least as large as what it holds, from the deepest level up: the tree of
// a scan that stopped midway may have folders whose sizes were never added up (a scan that adds
// a folder up only once it is fully listed). Sums stop at the largest size.
void rollUpFolderSizes(CacheSnapshot& snapshot);

} // namespace brimvale
