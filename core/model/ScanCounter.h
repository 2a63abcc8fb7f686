#pragma once

#include "core/model/ScanProgress.h"

#include <atomic>
#include <cstdint>

namespace brimvale {

// The running totals of one scan, shared by its concurrent workers. Thread safety: every
// operation may be called from any thread; each addition is atomic, and a read sees each
// field's latest value (the three fields are not read as one snapshot).
class ScanCounter {
public:
    void addFiles(std::int64_t count, std::int64_t bytes);
    void addFolders(std::int64_t count);

    std::int64_t fileCount() const { return fileCount_.load(std::memory_order_relaxed); }
    std::int64_t folderCount() const { return folderCount_.load(std::memory_order_relaxed); }
    std::int64_t bytes() const { return bytes_.load(std::memory_order_relaxed); }

    ScanProgress progress(Stage stage) const;

private:
    std::atomic<std::int64_t> fileCount_{0};   // files seen so far
    std::atomic<std::int64_t> folderCount_{0}; // folders seen so far
    std::atomic<std::int64_t> bytes_{0};       // bytes of the files seen so far
};

} // namespace brimvale
