#pragma once

#include "core/model/Date.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// The store of finished scans: one file per stem in the cache directory, "<stem>.cache"
// (compressed property list) or the older "<stem>.json", plus the store's own "cache.log".
// Writes are atomic: a crash or a full disk during a write leaves the previous file as it was,
// and no temporary file behind. Cache files are readable by the user only (0600): they list every
// file name of an account. Thread safety: every operation may be called from any thread; they
// run one at a time.
class ScanCache {
public:
    struct LoadedData {
        std::vector<std::uint8_t> bytes;
        Date modified; // the file's modification time
    };

    // The user's cache directory: $XDG_CACHE_HOME/Brimvale or ~/.cache/Brimvale.
    static std::string defaultDirectory();

    // Creates `directory` (and any missing parents) when it is not there.
    explicit ScanCache(std::string directory = defaultDirectory());

    const std::string& directory() const { return directory_; }
    std::string logPath() const { return directory_ + "/cache.log"; }

    // Replaces <stem>.cache with `data`, then logs "Saved N bytes → <stem>.cache". A failure is
    // logged ("Save failed: …") and returned as its reason, never thrown: the previous file
    // stays.
    std::optional<std::string> write(std::span<const std::uint8_t> data, std::string_view stem);
    // <stem>.cache, else <stem>.json: the first that can be read, with its modification time.
    std::optional<LoadedData> loadData(std::string_view stem);
    // The modification time of the file loadData would use.
    std::optional<Date> cacheDate(std::string_view stem);
    // Removes <stem>.cache and <stem>.json; a missing file is fine.
    void clear(std::string_view stem);
    // Removes the .cache and .json files of every stem that begins with `prefix`.
    void clearAllStems(std::string_view prefix);
    // Appends "[2026-03-01 14:05:09 +0000] message" to cache.log; failures are ignored.
    void log(std::string_view message);

    // The modification time given to files whose time cannot be read: the distant past.
    static constexpr Date kDistantPast{-63'114'076'800.0};

private:
    std::string pathFor(std::string_view stem, std::string_view suffix) const;
    void logLocked(std::string_view message);

    std::mutex mutex_; // one file operation at a time
    std::string directory_;
};

} // namespace brimvale
