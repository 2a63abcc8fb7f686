#include "core/rclone/RcloneListingMerge.h"

#include "core/rclone/PlainInternetDate.h"
#include "core/support/FatalError.h"
#include "core/support/SaturatingAdd.h"

#include <string_view>
#include <unordered_map>

namespace brimvale {

std::vector<FileNodeRef> mergeListingEntries(const std::vector<RcloneEntry>& entries,
                                             FileNode& node, const ListingMergeContext& context) {
    auto& children = node.mutableChildren();
    const SharedTextRef basePath = node.sharedPath();

    // The first child of each name, as a front-to-back search would find it; appended and
    // replacing nodes keep it current. Keys view the names of nodes held in `children`.
    std::unordered_map<std::string_view, std::size_t> firstIndexByName;
    firstIndexByName.reserve(children.size() + entries.size());
    for (std::size_t i = 0; i < children.size(); ++i) {
        firstIndexByName.try_emplace(children[i]->name(), i);
    }

    std::vector<FileNodeRef> subdirs;
    for (const auto& entry : entries) {
        FileNodeRef child = FileNode::makeChild(
            basePath, PathJoin::slash,
            {.name = entry.name,
             .isDirectory = entry.isDir,
             .size = entry.rawSize >= 0 ? entry.rawSize : 0,
             .modifiedDate = entry.modTime ? parsePlainInternetDate(*entry.modTime) : std::nullopt,
             .providerID = entry.id,
             .mimeType = entry.mimeType});
        child->setScanGeneration(context.scanSession);
        child->setParent(&node);

        const auto existing = firstIndexByName.find(child->name());
        if (existing == firstIndexByName.end()) {
            firstIndexByName.emplace(child->name(), children.size());
            children.push_back(child);
        } else {
            const std::size_t index = existing->second;
            FileNodeRef& previous = children[index];
            if (previous->isDirectory() == entry.isDir) {
                // The subtree stays until this folder's own listing merges or prunes it.
                child->mutableChildren() = std::move(previous->mutableChildren());
                for (const auto& grandchild : child->children()) {
                    grandchild->setParent(child.get());
                }
            }
            firstIndexByName.erase(existing);
            previous = child;
            firstIndexByName.emplace(child->name(), index);
        }
        if (entry.isDir) {
            subdirs.push_back(std::move(child));
        }
    }
    for (const auto& child : children) {
        child->setParent(&node);
    }
    return subdirs;
}

void refreshAggregatedSize(FileNode& node) {
    if (!node.isDirectory()) {
        return;
    }
    std::int64_t total = 0;
    for (const auto& child : node.children()) {
        total = saturatingAdd(total, child->size());
    }
    node.setSize(total);
    node.rebalanceChildren();
    node.sortImmediateChildren();
}

} // namespace brimvale
