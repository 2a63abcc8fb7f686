#pragma once

#include "core/persistence/history/ScanSummary.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

enum class ChangeKind : std::uint8_t {
    grew,   // larger, or as large with more items (also when only what it holds moved around)
    shrank, // smaller, or as large with fewer items
    added,  // not in the earlier scan
    removed // not in the later scan
};

std::string_view changeKindName(ChangeKind kind); // "grew", "shrank", "added", "removed"

// One item of the comparison. Items are matched by path (a renamed item is one removed and one
// added) and by kind (a file that became a folder of the same name too).
struct ScanChange {
    std::int32_t parent = -1;      // the entry of the folder that holds it; -1 for the root
    std::int32_t beforeIndex = -1; // in the earlier summary; -1 when added
    std::int32_t afterIndex = -1;  // in the later summary; -1 when removed
    std::int64_t before = 0;
    std::int64_t after = 0;
    std::int32_t itemsBefore = 0;
    std::int32_t itemsAfter = 0;
    ChangeKind kind = ChangeKind::grew;
    bool isDir = false;

    // after - before, stopping at the int64 limits.
    std::int64_t sizeChange() const;
    // |after - before|, exact.
    std::uint64_t sizeChangeMagnitude() const {
        return after >= before
                   ? static_cast<std::uint64_t>(after) - static_cast<std::uint64_t>(before)
                   : static_cast<std::uint64_t>(before) - static_cast<std::uint64_t>(after);
    }
};

// What changed between two scans of the same folder or account: the items added, removed or of
// another size or item count, and every folder on the way to them. Entry 0 is the root; a
// folder comes before what it holds. The summaries must outlive the comparison.
struct ScanComparison {
    const ScanSummary* before = nullptr;
    const ScanSummary* after = nullptr;
    std::vector<ScanChange> changes;

    std::string_view name(std::size_t entry) const;
    // Relative to the scanned root, "a/b"; "" for the root.
    std::string path(std::size_t entry) const;
    // How many folders down from the root (the root's children are 1).
    int depth(std::size_t entry) const;
    // The entries of the folder's children, largest change first (then larger change in items,
    // then by name).
    std::vector<std::size_t> childrenByChange(std::size_t folder) const;
    // Every entry but the root, largest change first.
    std::vector<std::size_t> allByChange() const;
};

// Compares two summaries of the same key. Time and memory are linear in the two summaries.
ScanComparison compareScans(const ScanSummary& before, const ScanSummary& after);

} // namespace brimvale
