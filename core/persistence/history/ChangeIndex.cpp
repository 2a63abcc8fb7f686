#include "core/persistence/history/ChangeIndex.h"

#include "core/model/SizeFormatter.h"
#include "core/model/TreePath.h"

#include <vector>

namespace brimvale {

ChangeIndex::ChangeIndex(const ScanComparison& comparison) {
    if (comparison.changes.empty()) {
        return;
    }
    total_ = comparison.changes.front();
    from_ = comparison.before->date;
    for (std::size_t entry = 1; entry < comparison.changes.size(); ++entry) {
        if (comparison.changes[entry].afterIndex >= 0) {
            byPath_.emplace(comparison.path(entry), comparison.changes[entry]);
        }
    }
}

const ScanChange* ChangeIndex::find(const FileNode& node) const {
    if (node.parent() == nullptr) {
        return &total_;
    }
    const auto found = byPath_.find(pathBelow(node));
    return found == byPath_.end() ? nullptr : &found->second;
}

std::string ChangeIndex::text(const ScanChange* change) {
    if (change == nullptr) {
        return {};
    }
    if (change->kind == ChangeKind::added) {
        return "new";
    }
    const std::int64_t delta = change->sizeChange();
    if (delta == 0) {
        return {};
    }
    return (delta < 0 ? "\u2212" : "+") + formatBytes(delta < 0 ? -delta : delta);
}

} // namespace brimvale
