#include "core/persistence/history/ScanHistory.h"

#include "core/persistence/cache/SavedScanNames.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/support/CorruptDataError.h"
#include "core/support/FileBytes.h"
#include "core/support/SettingsStore.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <dirent.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace brimvale {
namespace {

constexpr std::string_view kSuffix = ".history";

int settingOr(const SettingsStore& settings, const std::string& key, int fallback) {
    const auto text = settings.stringValue(key);
    int value = 0;
    if (!text || text->empty() ||
        std::from_chars(text->data(), text->data() + text->size(), value).ptr !=
            text->data() + text->size() ||
        value < 0) {
        return fallback;
    }
    return value;
}

// The names in `folder` (none when it cannot be read), sorted.
std::vector<std::string> namesIn(const std::string& folder, bool foldersOnly) {
    std::vector<std::string> names;
    DIR* listing = ::opendir(folder.c_str());
    if (listing == nullptr) {
        return names;
    }
    while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (foldersOnly ? entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN
                        : name.ends_with(kSuffix)) {
            names.emplace_back(name);
        }
    }
    ::closedir(listing);
    std::sort(names.begin(), names.end());
    return names;
}

void makeFolder(const std::string& path) {
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), "cannot create " + path);
    }
}

} // namespace

HistoryLimits HistoryLimits::forAccount(const SettingsStore& settings, std::string_view accountID) {
    return HistoryLimits{
        .earlierScans =
            settingOr(settings, SettingsKeys::scanHistoryLength(accountID), kDefaultEarlierScans),
        .maxAgeDays =
            settingOr(settings, SettingsKeys::scanHistoryDays(accountID), kDefaultMaxAgeDays)};
}

ScanHistory::ScanHistory(std::string cacheDirectory)
    : root_(std::move(cacheDirectory) + "/history") {}

std::string ScanHistory::folderFor(std::string_view key) const {
    return root_ + "/" + SavedScanNames::fileStem(key);
}

std::optional<std::string> ScanHistory::record(std::string_view key, const CacheSnapshot& snapshot,
                                               Date finished, const HistoryLimits& limits, Date now,
                                               std::string savedFile, std::int64_t fileThreshold) {
    if (snapshot.partial || snapshot.nodeCount() == 0) {
        return "only a finished scan enters the history";
    }
    try {
        ScanSummary summary = summarizeSnapshot(snapshot, fileThreshold);
        summary.key = key;
        summary.date = finished;
        summary.savedFile = std::move(savedFile);
        const auto bytes = encodeScanSummary(summary);
        const std::string folder = folderFor(key);
        makeFolder(root_);
        makeFolder(folder);
        char name[32];
        std::snprintf(name, sizeof name, "%016lld",
                      static_cast<long long>(std::llround(finished.unixSeconds() * 1000.0)));
        writeFileAtomically(folder + "/" + name + std::string(kSuffix), bytes, 0600);
    } catch (const std::exception& error) {
        return error.what();
    }
    prune(key, limits, now);
    return std::nullopt;
}

std::vector<HistoryEntry> ScanHistory::entries(std::string_view key) const {
    std::vector<HistoryEntry> found;
    const std::string folder = folderFor(key);
    for (const auto& name : namesIn(folder, false)) {
        HistoryEntry entry{.file = folder + "/" + name};
        try {
            const auto header = decodeScanSummaryHeader(readFileBytes(entry.file).bytes);
            if (header.key != key) {
                continue; // another key with the same hashed stem
            }
            entry.date = header.date;
            entry.savedFile = header.savedFile;
            entry.totalSize = header.totalSize;
            entry.totalItems = header.totalItems;
        } catch (const std::exception&) {
            continue;
        }
        found.push_back(std::move(entry));
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.date > b.date; });
    return found;
}

ScanSummary ScanHistory::load(const HistoryEntry& entry) {
    return decodeScanSummary(readFileBytes(entry.file).bytes);
}

void ScanHistory::prune(std::string_view key, const HistoryLimits& limits, Date now) const {
    const auto all = entries(key);
    const double oldest = now.secondsSinceReferenceDate - limits.maxAgeDays * 86'400.0;
    for (std::size_t index = 1; index < all.size(); ++index) {
        if (index > static_cast<std::size_t>(limits.earlierScans) ||
            all[index].date.secondsSinceReferenceDate < oldest) {
            ::unlink(all[index].file.c_str());
        }
    }
}

std::vector<std::string> ScanHistory::removeAccount(std::string_view accountID) const {
    std::vector<std::string> removed;
    for (const auto& stem : namesIn(root_, true)) {
        if (!SavedScanNames::stemMayBelongToAccount(stem, accountID)) {
            continue;
        }
        const std::string folder = root_ + "/" + stem;
        const bool hashed = SavedScanNames::isHashedStem(stem);
        for (const auto& name : namesIn(folder, false)) {
            const std::string path = folder + "/" + name;
            bool ours = !hashed;
            if (hashed) {
                // A hashed stem says only part of its account's name: the key inside decides;
                // a damaged file in a folder named like the account's goes too.
                try {
                    ours = SavedScanNames::keyBelongsToAccount(
                        decodeScanSummaryHeader(readFileBytes(path).bytes).key, accountID);
                } catch (const CorruptDataError&) {
                    ours = true;
                } catch (const std::exception&) {
                }
            }
            if (ours && ::unlink(path.c_str()) == 0) {
                removed.push_back("history/" + stem + "/" + name);
            }
        }
        ::rmdir(folder.c_str()); // only once empty
    }
    std::sort(removed.begin(), removed.end());
    return removed;
}

} // namespace brimvale
