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

} // namespace brimvale
