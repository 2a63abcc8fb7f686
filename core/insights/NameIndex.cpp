#include "core/insights/NameIndex.h"

#include "core/support/FatalError.h"

#include <algorithm>
#include <limits>

namespace brimvale {

NameIndex::NameIndex(const FileNode& folder) {
    std::vector<const FileNode*> stack;
    const auto& top = folder.children();
    for (auto child = top.rbegin(); child != top.rend(); ++child) {
        stack.push_back(child->get());
    }
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        if (names_.size() > std::numeric_limits<std::uint32_t>::max() - 4096) {
            fatalError("The names of this tree are too long to search (over 4 GB).");
        }
        const std::size_t start = names_.size();
        starts_.push_back(static_cast<std::uint32_t>(start));
        names_.append(node->name());
        for (std::size_t i = start; i < names_.size(); ++i) {
            names_[i] = NamePattern::foldByte(names_[i]);
        }
        names_.push_back('\0');
        nodes_.push_back(FileNodeRef(const_cast<FileNode*>(node)));
        sizes_.push_back(node->size());
        const auto& children = node->children();
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            __builtin_prefetch(child->get()); // a miss of its own: asked for early
            stack.push_back(child->get());
        }
    }
    starts_.push_back(static_cast<std::uint32_t>(names_.size()));
}

NameIndex::Matches NameIndex::search(const NamePattern& pattern, std::size_t limit) const {
    std::vector<std::uint32_t> found;
    if (!pattern.isEmpty() && !nodes_.empty()) {
        const std::string_view all(names_);
        if (pattern.isGlob()) {
            for (std::uint32_t i = 0; i + 1 < starts_.size(); ++i) {
                const auto name = all.substr(starts_[i], starts_[i + 1] - starts_[i] - 1);
                if (pattern.matchesFolded(name)) {
                    found.push_back(i);
                }
            }
        } else {
            // Names never hold NUL, so a match never spans two of them.
            std::size_t at = all.find(pattern.folded());
            while (at != std::string_view::npos) {
                const auto next = std::upper_bound(starts_.begin(), starts_.end(), at);
                found.push_back(static_cast<std::uint32_t>(next - starts_.begin() - 1));
                at = all.find(pattern.folded(), *next);
            }
        }
    }
    Matches matches;
    matches.count = found.size();
    const auto larger = [this](std::uint32_t a, std::uint32_t b) {
        return sizes_[a] != sizes_[b] ? sizes_[a] > sizes_[b] : a < b;
    };
    const std::size_t kept = std::min(limit, found.size());
    std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(kept), found.end(),
                      larger);
    matches.items.reserve(kept);
    for (std::size_t i = 0; i < kept; ++i) {
        matches.items.push_back(nodes_[found[i]]);
    }
    return matches;
}

} // namespace brimvale
