#pragma once

#include "core/local/DirectoryReader.h"
#include "core/local/QuietPrefixes.h"
#include "core/model/SkippedFolder.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace brimvale {

// How a local scan runs. Value type; the callbacks are called from the scan's worker threads,
// one call at a time.
struct LocalScanOptions {
    // Folders read at the same time: the size of the scan's worker pool.
    int workerCount = 4;
    // A folder whose listing makes no progress for this long is skipped and left empty.
    std::chrono::milliseconds folderTimeLimit{4000};
    // Logical paths whose unreadable folders do not call onPermissionError.
    std::vector<std::string> quietPrefixes = QuietPrefixes::defaults();
    // Reads the folders; null means the POSIX reader.
    std::shared_ptr<DirectoryReader> directoryReader;
    // Once per unreadable or timed-out folder outside the quiet prefixes.
    std::function<void()> onPermissionError;
    // For every folder that could not be listed, quiet or not.
    std::function<void(const SkippedFolder&)> onSkippedFolder;
};

} // namespace brimvale
