#include "core/local/HardLinkRegistry.h"

#include <algorithm>
#include <string>

namespace brimvale {

HardLinkRegistry::Shard& HardLinkRegistry::shardFor(const FileIdentity& file) {
    return shards_[(FileIdentityHash{}(file) >> 56) % kShards];
}

bool HardLinkRegistry::claim(const FileIdentity& file) {
    Shard& shard = shardFor(file);
    std::lock_guard guard(shard.lock);
    return shard.seen.insert(file);
}

void HardLinkRegistry::record(const FileIdentity& file, FileNodeRef node,
                              std::int64_t allocatedSize) {
    Shard& shard = shardFor(file);
    std::lock_guard guard(shard.lock);
    shard.names.push_back({file, std::move(node), allocatedSize});
}

bool HardLinkRegistry::assignOwnersByPath() {
    bool any = false;
    for (Shard& shard : shards_) {
        std::lock_guard guard(shard.lock);
        auto& names = shard.names;
        any = any || !names.empty();
        struct Keyed {
            std::size_t index;
            std::string path;
        };
        std::vector<Keyed> keyed;
        keyed.reserve(names.size());
        for (std::size_t i = 0; i < names.size(); ++i) {
            keyed.push_back({i, names[i].node->path()});
        }
        std::sort(keyed.begin(), keyed.end(), [&](const Keyed& a, const Keyed& b) {
            const FileIdentity& fa = names[a.index].file;
            const FileIdentity& fb = names[b.index].file;
            if (fa.device != fb.device) {
                return fa.device < fb.device;
            }
            if (fa.inode != fb.inode) {
                return fa.inode < fb.inode;
            }
            return a.path < b.path;
        });
        for (std::size_t i = 0; i < keyed.size(); ++i) {
            const Name& name = names[keyed[i].index];
            const bool owner = i == 0 || !(names[keyed[i - 1].index].file == name.file);
            name.node->setSize(owner ? name.allocatedSize : 0);
        }
        names.clear();
    }
    return any;
}

} // namespace brimvale
