#include "core/persistence/history/SavedScanHistory.h"

#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/ScanCache.h"

namespace brimvale {
std::vector<ListedScan> listSavedScans(ScanCache& cache, std::string_view key) {
    std::vector<ListedScan> scans;
    const auto entries = ScanHistory(cache.directory()).entries(key);
    const auto savedFile = cache.savedFileIdentity(key);
    if (savedFile && (entries.empty() || entries.front().savedFile != *savedFile)) {
        if (const auto saved = cache.loadData(key)) {
            if (const auto decoded = decodeCacheRecord(saved->bytes)) {
                auto snapshot = snapshotForCache(*decoded->root);
                snapshot.partial = decoded->partial;
                auto summary = std::make_shared<ScanSummary>(
                    summarizeSnapshot(snapshot, kDefaultHistoryFileThreshold));
                summary->key = key;
                summary->date = saved->modified;
                scans.push_back(ListedScan{.date = saved->modified,
                                           .totalSize = summary->totalSize(),
                                           .totalItems = summary->totalItems(),
                                           .partial = decoded->partial,
                                           .loaded = std::move(summary)});
            }
        }
    }
    for (const auto& entry : entries) {
        scans.push_back(ListedScan{.date = entry.date,
                                   .totalSize = entry.totalSize,
                                   .totalItems = entry.totalItems,
                                   .entry = entry});
    }
    return scans;
}

std::shared_ptr<const ScanSummary> loadListedScan(const ListedScan& scan) {
    if (scan.loaded) {
        return scan.loaded;
    }
    return std::make_shared<ScanSummary>(ScanHistory::load(*scan.entry));
}

} // namespace brimvale
