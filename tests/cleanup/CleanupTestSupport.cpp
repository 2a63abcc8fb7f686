#include "tests/cleanup/CleanupTestSupport.h"

#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/cache/ScanCache.h"

#include <gtest/gtest.h>

namespace brimvale::testing {

FileNodeRef savedTree(const std::filesystem::path& home, const std::string& stem) {
    ScanCache cache((home / "cache" / "Brimvale").string());
    const auto saved = cache.loadData(stem);
    if (!saved) {
        return {};
    }
    const auto root = decodeCacheNode(saved->bytes);
    return root ? *root : FileNodeRef();
}

FileNodeRef savedLocalTree(const std::filesystem::path& home, const std::string& location) {
    return savedTree(home, LocalScanCacheStem::stem("localdisk", location));
}

const FileNode* childNamed(const FileNode& folder, std::string_view name) {
    for (const auto& child : folder.children()) {
        if (child->name() == name) {
            return child.get();
        }
    }
    return nullptr;
}

void expectRolledUpAndSorted(const FileNode& folder) {
    if (folder.children().empty()) {
        return;
    }
    std::int64_t sum = 0;
    std::int64_t previous = INT64_MAX;
    for (const auto& child : folder.children()) {
        EXPECT_LE(child->size(), previous) << "children of " << folder.path() << " out of order";
        previous = child->size();
        sum += child->size();
        expectRolledUpAndSorted(*child);
    }
    EXPECT_EQ(folder.size(), sum) << folder.path();
}

} // namespace brimvale::testing
