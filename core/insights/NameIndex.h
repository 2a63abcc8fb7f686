#pragma once

#include "core/insights/NamePattern.h"
#include "core/model/FileNode.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace brimvale {

// Every name under a folder, folded to lower case back to back in one buffer, with each item's
// node and size as they were when the index was built: a search per keystroke scans the
// buffer instead of walking the tree.
//
// Threads: built on the thread that owns the tree; then read-only, so any thread may search
// it. It holds every node it lists, so results stay valid whatever happens to the tree.
class NameIndex {
public:
    NameIndex() = default;
    // Indexes the items below `folder` (not the folder itself), in pre-order.
    explicit NameIndex(const FileNode& folder);

    struct Matches {
        // The largest matching items first (equal sizes in tree order), at most the limit.
        std::vector<FileNodeRef> items;
        std::size_t count = 0; // every match, shown or not
    };
    Matches search(const NamePattern& pattern, std::size_t limit) const;

    std::size_t size() const { return nodes_.size(); }

private:
    std::string names_;                 // folded names, each followed by a NUL
    std::vector<std::uint32_t> starts_; // where each name begins in names_; one past the end last
    std::vector<FileNodeRef> nodes_;
    std::vector<std::int64_t> sizes_;
};

} // namespace brimvale
