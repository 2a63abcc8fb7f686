#pragma once

#include "core/local/DirEntry.h"
#include "core/local/FileIdentitySet.h"
#include "core/model/FileNode.h"

#include <array>
#include <mutex>
#include <vector>

namespace brimvale {

// Counts a file with several names (hard links) once per scan, as du does: the first name a
// worker meets carries the file's size, the others count 0. Because workers race, which name
// comes first differs between runs; assignOwnersByPath() then moves each file's size to its
// name with the smallest path, so finished trees are the same on every run.
// Thread safety: claim() and record() may be called from every worker at once;
// assignOwnersByPath() only after the workers are done, by the tree's owner.
class HardLinkRegistry {
public:
    // True for the first name of the file seen in this scan.
    bool claim(const FileIdentity& file);
    // Notes a node made for a name of a file with several names, and the file's size.
    void record(const FileIdentity& file, FileNodeRef node, std::int64_t allocatedSize);
    // Gives each recorded file's size to its name with the smallest path and 0 to the others;
    // false when no name was recorded. Folder sizes are not updated; roll the tree up after.
    bool assignOwnersByPath();

private:
    struct Name {
        FileIdentity file;
        FileNodeRef node;
        std::int64_t allocatedSize;
    };
    struct Shard {
        std::mutex lock;         // guards the two fields below
        FileIdentitySet seen;    // files claimed so far
        std::vector<Name> names; // every recorded name
    };
    static constexpr std::size_t kShards = 16; // spreads workers over locks

    Shard& shardFor(const FileIdentity& file);

    std::array<Shard, kShards> shards_;
};

} // namespace brimvale
