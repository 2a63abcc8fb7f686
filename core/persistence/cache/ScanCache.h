#pragma once

#include "core/model/Date.h"
#include "core/support/FileBytes.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace brimvale {

// The store of finished scans: one file per saved-scan key in the cache directory,
// "<file stem>.cache" (compressed property list) or the older "<file stem>.json", plus the
// store's own "cache.log". Keys and file stems are SavedScanNames'; every "stem" parameter below
// is a key. Writes are atomic: a crash or a full disk during a write leaves the previous file as
// it was, and a temporary file a killed write left is removed when the store is next opened.
// Cache files are readable by the user only (0600): they list every file name of an account.
// Thread safety: every operation may be called from any thread; they run one at a time.
class ScanCache {
public:
    struct LoadedData {
        std::vector<std::uint8_t> bytes;
        Date modified; // the file's modification time
    };

    // The user's cache directory: $XDG_CACHE_HOME/Brimvale or ~/.cache/Brimvale.
    static std::string defaultDirectory();

    // Creates `directory` (and any missing parents) when it is not there, and removes the
    // temporary files of writes that were killed (not those a live write holds).
    explicit ScanCache(std::string directory = defaultDirectory());

    const std::string& directory() const { return directory_; }
    std::string logPath() const { return directory_ + "/cache.log"; }

    // Replaces the key's .cache file with `data`, then logs "Saved N bytes → <file>". A failure
    // is logged ("Save failed: …") and returned as its reason, never thrown: the previous file
    // stays.
    std::optional<std::string> write(std::span<const std::uint8_t> data, std::string_view stem);
    // The same for a file made while it is written: `produce` hands its bytes over in order (see
    // writeFileAtomically); its exceptions are failures, and their messages what is returned.
    std::optional<std::string> write(std::string_view stem,
                                     const std::function<void(const FileAppender&)>& produce);
    // The key's .cache file, else its .json one: the first that can be read (a regular file),
    // with its modification time. A file under a hashed stem counts as none unless it can be
    // read and its stored key is this one (two keys may share a stem); its bytes are then the
    // decompressed property list.
    std::optional<LoadedData> loadData(std::string_view stem);
    // The modification time of the file loadData would use.
    std::optional<Date> cacheDate(std::string_view stem);
    // What tells this file of the key from any other written under its name (inode, size and
    // modification time): a save replaces the file, so the text changes with every save.
    std::optional<std::string> savedFileIdentity(std::string_view stem);
    // Removes <stem>.cache and <stem>.json; a missing file is fine.
    void clear(std::string_view stem);
    // Removes the account's saved scans, its own key's and every one of its folders', with
    // their scan history; the names of the files removed (relative to the folder), sorted.
    std::vector<std::string> clearAccount(std::string_view accountID);
    // The file name of the key's current-format saved scan.
    static std::string fileNameFor(std::string_view stem);
    // Appends "[2026-03-01 14:05:09 +0000] message" to cache.log; failures are ignored.
    void log(std::string_view message);

    // The modification time given to files whose time cannot be read: the distant past.
    static constexpr Date kDistantPast{-63'114'076'800.0};

private:
    std::string pathFor(std::string_view stem, std::string_view suffix) const;
    // The status of the stem's saved file (current format first); none without a regular file.
    std::optional<struct stat> savedFileStatus(std::string_view stem) const;
    std::optional<LoadedData> loadFile(const std::string& path, std::string_view key);
    void logLocked(std::string_view message);

    std::mutex mutex_; // one file operation at a time
    std::string directory_;
};

} // namespace brimvale
