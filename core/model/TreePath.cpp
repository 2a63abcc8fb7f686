#include "core/model/TreePath.h"

#include <string_view>
#include <vector>

namespace brimvale {

std::string pathBelow(const FileNode& node, const FileNode* root) {
    std::vector<std::string_view> names;
    for (const FileNode* at = &node; at != root && at->parent() != nullptr; at = at->parent()) {
        names.push_back(at->name());
    }
    std::string path;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (!path.empty()) {
            path += '/';
        }
        path += *name;
    }
    return path;
}

const FileNode* folderBelow(const FileNode& root, std::string_view path) {
    const FileNode* node = &root;
    while (!path.empty() && node != nullptr) {
        const auto slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (name.empty() || name == ".") {
            continue;
        }
        const FileNode* next = nullptr;
        for (const auto& child : node->children()) {
            if (child->isDirectory() && child->name() == name) {
                next = child.get();
                break;
            }
        }
        node = next;
    }
    return node;
}

} // namespace brimvale
