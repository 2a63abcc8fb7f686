#pragma once

#include "core/model/Date.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/history/ScanSummary.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

class SettingsStore;

// How much history an account keeps: the newest finished scan plus at most `earlierScans`
// before it, none of those older than `maxAgeDays`.
struct HistoryLimits {
    static constexpr int kDefaultEarlierScans = 10;
    static constexpr int kDefaultMaxAgeDays = 90;
    int earlierScans = kDefaultEarlierScans;
    int maxAgeDays = kDefaultMaxAgeDays;

    // The account's settings (SettingsKeys::scanHistoryLength, scanHistoryDays); a missing or
    // unreadable value is the default.
    static HistoryLimits forAccount(const SettingsStore& settings, std::string_view accountID);
};

// One scan in the history, as listed (the file is decoded only when compared).
struct HistoryEntry {
    std::string file; // its path
    Date date;
    std::string savedFile; // the identity of the saved scan it was made with
    std::int64_t totalSize = 0;
    std::int64_t totalItems = 0;
};

// The scan history of every saved-scan key: "<cache folder>/history/<file stem>/<ms>.history",
// one summary (ScanSummary) per finished scan, named by when it finished. Partial scans never
// enter it. Files are written atomically, 0600, like saved scans.
// Thread safety: stateless; concurrent calls on distinct keys are fine, and the scan writer
// makes every change of one key from its one thread.
class ScanHistory {
public:
    explicit ScanHistory(std::string cacheDirectory);

    // Keeps the summary of a finished scan of `key` (saved as the file `savedFile`, see
    // ScanCache::savedFileIdentity), then drops what `limits` no longer allow (`now` decides
    // the age). The reason it failed, if it did; a partial snapshot is refused.
    std::optional<std::string> record(std::string_view key, const CacheSnapshot& snapshot,
                                      Date finished, const HistoryLimits& limits, Date now,
                                      std::string savedFile = {},
                                      std::int64_t fileThreshold = kDefaultHistoryFileThreshold);
    // The key's scans, newest first; damaged files and files of another key are left out.
    std::vector<HistoryEntry> entries(std::string_view key) const;
    // Throws CorruptDataError or std::system_error when the file cannot be read.
    static ScanSummary load(const HistoryEntry& entry);
    // Removes the history of the account's own key and of every one of its folders; the paths
    // removed, relative to the cache folder, sorted.
    std::vector<std::string> removeAccount(std::string_view accountID) const;

private:
    std::string folderFor(std::string_view key) const;
    void prune(std::string_view key, const HistoryLimits& limits, Date now) const;

    std::string root_; // <cache folder>/history
};

} // namespace brimvale
