#pragma once

#include "core/persistence/history/ScanHistory.h"

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace brimvale {

class ScanCache;

// One scan of a key that can be listed and compared.
struct ListedScan {
    Date date;
    std::int64_t totalSize = 0;
    std::int64_t totalItems = 0;
    bool partial = false;
    std::optional<HistoryEntry> entry;         // a scan of the history
    std::shared_ptr<const ScanSummary> loaded; // the saved scan, summarized when listed
};

// The scans of a key, newest first: the history's, and before them the saved scan itself when
// it is not the one the history's newest was made with (a checkpoint or stopped scan, which is
// partial; a tree with a refreshed folder; a scan saved before the history was kept).
// Unreadable files are left out.
std::vector<ListedScan> listSavedScans(ScanCache& cache, std::string_view key);

// The summary of a listed scan. Throws CorruptDataError or std::system_error when its file
// cannot be read any more.
std::shared_ptr<const ScanSummary> loadListedScan(const ListedScan& scan);

} // namespace brimvale
