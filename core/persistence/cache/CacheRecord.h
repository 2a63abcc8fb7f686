#pragma once

#include "core/model/FileNode.h"
#include "core/persistence/cache/CacheSnapshot.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace brimvale {

// The bytes of a ".cache" file: the snapshot as a binary property list dictionary with the keys
// v (2), rp, rn, nm, pr, di, sz, mt, pi, mi in that order, then pa (the integer 1) for a partial
// tree only, compressed with LZFSE (or, should compression fail, the property list as it is).
// None when the property list cannot be made. Readers that know only the ten keys ignore pa.
std::optional<std::vector<std::uint8_t>> encodeCacheSnapshot(const CacheSnapshot& snapshot);

// A tree rebuilt from a cache file, and whether it is the partial tree of a scan that did not
// finish.
struct DecodedScan {
    FileNodeRef root;
    bool partial = false;
};

// Rebuilds a tree from the bytes of a cache file: a compressed or plain property list record, or
// the older nested JSON. Reports progress from 0 to 1. None for a corrupt, truncated or foreign
// file: never an error to the user, the caller treats it as no cache.
std::optional<DecodedScan> decodeCacheRecord(std::span<const std::uint8_t> data,
                                             const std::function<void(double)>& onProgress = {});
// The same, the tree alone.
std::optional<FileNodeRef> decodeCacheNode(std::span<const std::uint8_t> data,
                                           const std::function<void(double)>& onProgress = {});

// The snapshot stored in a property-list record; throws CorruptDataError when the bytes are not
// a record with all ten keys (pa is optional). Exposed for tools and tests.
CacheSnapshot decodeCacheSnapshot(std::span<const std::uint8_t> propertyList);

// The tree of a snapshot (parent indices must precede their children, as pre-order has them;
// nodes with other parent indices are dropped); none when the columns disagree in length or are
// empty. Sizes are taken as stored. Children are not sorted and parent links not set.
std::optional<FileNodeRef> rebuildTree(const CacheSnapshot& snapshot,
                                       const std::function<void(double)>& onProgress = {});
// What a rebuilt tree needs before it is shown: no parent, its links set, its children sorted.
// Reports progress from 0.85 to 1.
void finishRebuiltTree(FileNode& root, const std::function<void(double)>& onProgress = {});

} // namespace brimvale
