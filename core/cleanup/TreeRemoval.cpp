#include "core/cleanup/TreeRemoval.h"

#include <algorithm>
#include <string>

namespace brimvale {

FileNode* findNodeByPath(FileNode& root, std::string_view path) {
    FileNode* node = &root;
    while (node != nullptr && node->path() != path) {
        FileNode* next = nullptr;
        for (const auto& child : node->children()) {
            const std::string childPath = child->path();
            if (childPath == path) {
                return child.get();
            }
            if (child->isDirectory() && path.starts_with(childPath) &&
                path.size() > childPath.size() && path[childPath.size()] == '/') {
                next = child.get();
                break;
            }
        }
        node = next;
    }
    return node;
}

bool removeFromTree(FileNode& node) {
    FileNode* parent = node.parent();
    if (parent == nullptr) {
        return false;
    }
    // Held while it leaves its folder, so the caller's pointer stays good.
    const FileNodeRef kept(&node);
    auto& siblings = parent->mutableChildren();
    const auto found = std::find_if(siblings.begin(), siblings.end(),
                                    [&](const FileNodeRef& child) { return child.get() == &node; });
    if (found == siblings.end()) {
        return false;
    }
    siblings.erase(found);
    node.setParent(nullptr);
    const std::int64_t removed = node.size();
    for (FileNode* ancestor = parent; ancestor != nullptr; ancestor = ancestor->parent()) {
        ancestor->setSize(std::max<std::int64_t>(0, ancestor->size() - removed));
        ancestor->sortImmediateChildren();
        ancestor->rebalanceChildren();
    }
    return true;
}

} // namespace brimvale
