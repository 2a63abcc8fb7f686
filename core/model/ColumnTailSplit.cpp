#include "core/model/ColumnTailSplit.h"

#include "core/support/FatalError.h"
#include "core/support/SaturatingAdd.h"

#include <algorithm>

namespace brimvale::ColumnTailSplit {
namespace {

constexpr std::int64_t kSmallItemBytes = 10'000;
constexpr std::size_t kLongColumn = 101; // cuts from here on are capped at kMaxShown
constexpr std::size_t kMaxShown = 100;
constexpr std::size_t kMinFoldedRun = 20; // ordinary small items fold only in runs this long

} // namespace

std::size_t computeSplitIndex(std::size_t count,
                              const std::function<const FileNode&(std::size_t)>& itemAt) {
    std::size_t zeroIndex = count;
    std::size_t smallIndex = count;
    std::int64_t total = 0;
    for (std::size_t index = 0; index < count; ++index) {
        const FileNode& item = itemAt(index);
        if (zeroIndex == count && item.isDirectory() && item.size() == 0) {
            zeroIndex = index;
        }
        if (smallIndex == count && item.size() < kSmallItemBytes) {
            smallIndex = index;
        }
        total = saturatingAdd(total, item.size());
    }

    std::size_t coverIndex = count;
    if (total >= 1) {
        // Truncated, as the threshold is a whole byte count.
        const auto threshold = static_cast<std::int64_t>(static_cast<double>(total) * 0.99);
        std::int64_t running = 0;
        for (std::size_t index = 0; index < count; ++index) {
            running = saturatingAdd(running, itemAt(index).size());
            if (running >= threshold) {
                coverIndex = index + 1;
                break;
            }
        }
    }

    const std::size_t cut = std::min(smallIndex, coverIndex);
    std::size_t split = 0;
    if (cut >= kLongColumn) {
        split = zeroIndex > kMaxShown - 1 ? kMaxShown : zeroIndex;
    } else {
        split = std::min(zeroIndex, cut);
    }

    const std::size_t hidden = count - std::min(split, count);
    const bool hasEmptyFolder = zeroIndex < count;
    const bool makesTail = hasEmptyFolder ? hidden > 0 : hidden >= kMinFoldedRun;
    return makesTail ? split : kNoSplit;
}

std::size_t computeSplitIndex(const std::vector<FileNodeRef>& items) {
    return computeSplitIndex(items.size(),
                             [&](std::size_t index) -> const FileNode& { return *items[index]; });
}

std::string smallerItemsLabel(std::int64_t hiddenCount) {
    std::string label = std::to_string(hiddenCount) + " smaller item";
    if (hiddenCount != 1) {
        label += 's';
    }
    return label;
}

} // namespace brimvale::ColumnTailSplit
