#include "core/model/ScanCounter.h"

#include "core/support/SaturatingAdd.h"

namespace brimvale {
namespace {

// Adds with a compare-and-swap loop so that an overflowing sum is caught, never stored wrapped.
void addChecked(std::atomic<std::int64_t>& total, std::int64_t amount, const char* what) {
    std::int64_t current = total.load(std::memory_order_relaxed);
    for (;;) {
        const std::int64_t next = checkedAdd(current, amount, what);
        if (total.compare_exchange_weak(current, next, std::memory_order_relaxed)) {
            return;
        }
    }
}

// Byte counts come from outside and stop at the largest size instead.
void addSaturating(std::atomic<std::int64_t>& total, std::int64_t amount) {
    std::int64_t current = total.load(std::memory_order_relaxed);
    while (!total.compare_exchange_weak(current, saturatingAdd(current, amount),
                                        std::memory_order_relaxed)) {
    }
}

} // namespace

void ScanCounter::addFiles(std::int64_t count, std::int64_t bytes) {
    addChecked(fileCount_, count, "file count overflow in scan counter");
    addSaturating(bytes_, bytes);
}

void ScanCounter::addFolders(std::int64_t count) {
    addChecked(folderCount_, count, "folder count overflow in scan counter");
}

ScanProgress ScanCounter::progress(Stage stage) const {
    return ScanProgress{.stage = std::move(stage),
                        .filesScanned = fileCount(),
                        .foldersScanned = folderCount(),
                        .bytesAccountedFor = bytes()};
}

} // namespace brimvale
