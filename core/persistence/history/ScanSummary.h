#pragma once

#include "core/model/Date.h"
#include "core/persistence/cache/CacheSnapshot.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// What the scan history keeps of one finished scan: every folder with its size and the number
// of items below it, and the files of at least `fileThreshold` bytes with their size. Columns in
// pre-order (a parent before its children, siblings in the scan's order); node 0 is the root.
// Names are kept back to back in one buffer (a million names cost their bytes and four more
// each, not a string object each).
struct ScanSummary {
    std::string key;      // the saved-scan key (SavedScanNames)
    std::string rootName; // what the scan's root is called
    Date date;            // when the scan finished
    bool partial = false; // the scan did not finish: never compared as if it had
    std::int64_t fileThreshold = 0;
    std::string savedFile; // ScanCache::savedFileIdentity of the saved scan it was made with

    std::string nameBytes;
    std::vector<std::uint32_t> nameEnds; // where each name ends in nameBytes
    std::vector<std::int32_t> parents;   // -1 for the root
    std::vector<std::uint8_t> isDirs;
    std::vector<std::int64_t> sizes;
    std::vector<std::int32_t> items; // for a folder every item below it, kept or not; 0 for files

    std::size_t nodeCount() const { return parents.size(); }
    std::string_view name(std::size_t index) const {
        const std::uint32_t begin = index == 0 ? 0 : nameEnds[index - 1];
        return std::string_view(nameBytes).substr(begin, nameEnds[index] - begin);
    }
    std::int64_t totalSize() const { return sizes.empty() ? 0 : sizes[0]; }
    std::int64_t totalItems() const { return items.empty() ? 0 : items[0]; }
    void append(std::string_view name, std::int32_t parent, bool isDir, std::int64_t size,
                std::int32_t itemCount);
};

// Files of this size and more are kept by name: "which new file is large" can be answered for
// them, smaller ones show only in their folder's size and item count.
inline constexpr std::int64_t kDefaultHistoryFileThreshold = 1'000'000;

// The summary of a snapshot (pre-order, as snapshotForCache makes it). Items are counted over
// the whole snapshot, so a folder's count includes the small files the summary leaves out.
ScanSummary summarizeSnapshot(const CacheSnapshot& snapshot, std::int64_t fileThreshold);

// A history record: the summary as a binary property list (v, ky, rn, dt in milliseconds since
// 1970, th, sf, nm, pr, di, sz, ic), compressed with LZFSE. Throws std::length_error for columns
// the format cannot hold.
std::vector<std::uint8_t> encodeScanSummary(const ScanSummary& summary);
// Throws CorruptDataError for bytes that are not such a record, or whose columns disagree in
// length, name a parent that does not come before its child, or hold negative sizes or counts.
ScanSummary decodeScanSummary(std::span<const std::uint8_t> bytes);

// The key, date and totals of a history record, without decoding its columns.
struct ScanSummaryHeader {
    std::string key;
    Date date;
    std::string savedFile;
    std::int64_t totalSize = 0;
    std::int64_t totalItems = 0;
};
ScanSummaryHeader decodeScanSummaryHeader(std::span<const std::uint8_t> bytes);

} // namespace brimvale
