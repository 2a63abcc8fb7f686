#pragma once

#include "core/local/DirEntry.h"
#include "core/local/FileIdentitySet.h"

#include <array>
#include <mutex>

namespace brimvale {

// The folders a scan run has listed, by canonical location. A folder's canonical location is
// its device and inode numbers: every path that reaches the folder (through a symbolic link,
// a bind mount or a second mount of the same file system) gives the same one, without
// resolving any path. Thread safety: tryInsert() may be called from every worker at once.
class ConcurrentCanonicalPathSet {
public:
    // True when `folder` was not in the set (it is now): the caller lists it.
    bool tryInsert(const FileIdentity& folder);

private:
    struct Shard {
        std::mutex lock; // guards paths
        FileIdentitySet paths;
    };
    static constexpr std::size_t kShards = 16; // spreads the workers over locks

    std::array<Shard, kShards> shards_;
};

} // namespace brimvale
