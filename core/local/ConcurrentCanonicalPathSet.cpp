#include "core/local/ConcurrentCanonicalPathSet.h"

namespace brimvale {

bool ConcurrentCanonicalPathSet::tryInsert(const FileIdentity& folder) {
    // The high bits of the hash pick the shard; the table uses the low ones.
    Shard& shard = shards_[(FileIdentityHash{}(folder) >> 56) % kShards];
    std::lock_guard guard(shard.lock);
    return shard.paths.insert(folder);
}

} // namespace brimvale
