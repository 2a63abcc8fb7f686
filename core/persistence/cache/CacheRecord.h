#pragma once

#include "core/model/FileNode.h"
#include "core/persistence/cache/CacheSnapshot.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// The bytes of a ".cache" file: the snapshot as a binary property list dictionary with the keys
// v (2), rp, rn, nm, pr, di, sz, mt, pi, mi in that order, then pa (the integer 1) for a partial
// tree only and ky (the saved scan's key, see SavedScanNames) when one is given, compressed with
// LZFSE (writeCacheSnapshot, collected). None when the record cannot be made. Readers that know
// only the ten keys ignore pa and ky.
std::optional<std::vector<std::uint8_t>> encodeCacheSnapshot(const CacheSnapshot& snapshot,
                                                             std::string_view key = {});

// Thrown by writeCacheSnapshot when the snapshot cannot be made into a property list (before any
// byte reaches the sink).
struct CacheEncodingError : std::runtime_error {
    CacheEncodingError()
        : std::runtime_error("the scan could not be encoded") {}
};

// The same record, compressed, handed to `sink` in order as it is made: encoding and compression
// run side by side on pieces of the property list, so memory stays at a few pieces however large
// the tree, and the file's bytes start flowing long before the last node is encoded. Exceptions
// from the sink go on to the caller.
void writeCacheSnapshot(const CacheSnapshot& snapshot, std::string_view key,
                        const std::function<void(std::span<const std::uint8_t>)>& sink);

// How far a saved file of `compressedSize` bytes may decompress: several times its size, so a
// small hostile file cannot ask for unbounded memory while real trees of many millions fit.
std::size_t savedFileDecompressionLimit(std::size_t compressedSize);

// The property list of a ".cache" file (decompressed when it is compressed) and the key stored
// in it (empty when it has none). Throws CorruptDataError for bytes that are no record.
struct StoredRecord {
    std::vector<std::uint8_t> propertyList;
    std::string key;
};
StoredRecord readStoredRecord(std::span<const std::uint8_t> data);

// A tree rebuilt from a cache file, and whether it is the partial tree of a scan that did not
// finish.
struct DecodedScan {
    FileNodeRef root;
    bool partial = false;
};

// Rebuilds a tree from the bytes of a cache file: a compressed or plain property list record, or
// the older nested JSON. Reports progress from 0 to 1. None for a corrupt, truncated or foreign
// file, for one that would make more than RebuildLimits::forRecordOf(data.size()) allows, or
// when memory runs out: never an error to the user, the caller treats it as no cache.
std::optional<DecodedScan> decodeCacheRecord(std::span<const std::uint8_t> data,
                                             const std::function<void(double)>& onProgress = {});
// The same, the tree alone.
std::optional<FileNodeRef> decodeCacheNode(std::span<const std::uint8_t> data,
                                           const std::function<void(double)>& onProgress = {});

// The snapshot stored in a property-list record; throws CorruptDataError when the bytes are not
// a record with all ten keys (pa is optional) or it has more than `maxNodes` names (checked
// before any column is decoded). Exposed for tools and tests.
CacheSnapshot decodeCacheSnapshot(std::span<const std::uint8_t> propertyList,
                                  std::size_t maxNodes = SIZE_MAX);

// What a saved scan may make when it is read, in proportion to the file: a small crafted file
// cannot ask for millions of nodes or gigabytes of folder paths.
struct RebuildLimits {
    // The writer spends about 15 bytes per node even on a folder of files alike in everything
    // but their place (each integer is an object of its own in the property list), so one node
    // per byte of the file leaves ten times the densest real record.
    static constexpr std::uint64_t kNodesPerFileByte = 1;
    static constexpr std::uint64_t kFolderPathBytesPerFileByte = 16;

    std::size_t maxNodes = SIZE_MAX;
    // The sum of the path lengths of every folder that has children: each such folder keeps its
    // whole path, so a deep chain would cost the square of its depth.
    std::uint64_t maxFolderPathBytes = UINT64_MAX;

    // At least 65,536 nodes and 64 MiB of folder paths, more for a larger file.
    static RebuildLimits forRecordOf(std::size_t fileBytes);
};

// The tree of a snapshot (parent indices must precede their children, as pre-order has them;
// nodes with other parent indices are dropped); none when the columns disagree in length or are
// empty, or the tree is beyond `limits`. Sizes are taken as stored. Children are not sorted and
// parent links not set.
std::optional<FileNodeRef> rebuildTree(const CacheSnapshot& snapshot,
                                       const std::function<void(double)>& onProgress = {},
                                       const RebuildLimits& limits = {});
// What a rebuilt tree needs before it is shown: no parent, its links set, its children sorted.
// Reports progress from 0.85 to 1.
void finishRebuiltTree(FileNode& root, const std::function<void(double)>& onProgress = {});

} // namespace brimvale
