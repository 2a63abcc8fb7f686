#pragma once

#include "core/model/FileNode.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace brimvale {

// Where a column of the browser folds its long tail of small items behind one "N smaller
// items" row. Pure functions; any thread.
namespace ColumnTailSplit {

// "No split": every item of the column is shown.
inline constexpr std::size_t kNoSplit = std::numeric_limits<std::size_t>::max();

// The number of items shown before the tail row, over `count` items in display order (largest
// first), or kNoSplit. The cut is the earlier of "the items that cover 99% of the bytes" and
// "the first item under 10,000 bytes", at most 100 items, and never past the first empty
// folder; a tail is made only when it would hold 20 items or more, or when it starts at an
// empty folder (empty folders are always folded, ordinary small items only in runs of 20).
// Files count as non-empty whatever their size. Sums stop at the largest size.
std::size_t computeSplitIndex(std::size_t count,
                              const std::function<const FileNode&(std::size_t)>& itemAt);
std::size_t computeSplitIndex(const std::vector<FileNodeRef>& items);

// The label of the tail row: "1 smaller item", "110 smaller items".
std::string smallerItemsLabel(std::int64_t hiddenCount);

} // namespace ColumnTailSplit

} // namespace brimvale
