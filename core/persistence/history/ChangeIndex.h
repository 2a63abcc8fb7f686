#pragma once

#include "core/model/FileNode.h"
#include "core/persistence/history/ScanChanges.h"

#include <memory>
#include <string>
#include <unordered_map>

namespace brimvale {

// The changes of a comparison by the path of each item of the later scan, for views that show
// the later scan's tree: what changed for the item on screen. Items that did not change, and
// files under the history's size threshold, have none. Immutable once made; any thread.
class ChangeIndex {
public:
    explicit ChangeIndex(const ScanComparison& comparison);

    // The change of `node`, found by its names up to its tree's root; none when it has none.
    const ScanChange* find(const FileNode& node) const;
    // The root's change (the whole scan).
    const ScanChange& total() const { return total_; }
    Date from() const { return from_; }

    // "+1.2 GB", "−300 MB" (U+2212), "new" for an added item; empty for none.
    static std::string text(const ScanChange* change);

private:
    std::unordered_map<std::string, ScanChange> byPath_;
    ScanChange total_;
    Date from_;
};

} // namespace brimvale
