#include "tests/support/TreeBuilders.h"

namespace brimvale::testing {

FileNodeRef file(const std::string& name, std::int64_t size) {
    return FileNode::make({.name = name, .path = "/" + name, .size = size});
}

FileNodeRef folder(const std::string& name, std::vector<FileNodeRef> children) {
    return FileNode::make(
        {.name = name, .path = "/" + name, .isDirectory = true, .children = std::move(children)});
}

std::vector<std::string> childNames(const FileNode& node) {
    std::vector<std::string> names;
    for (const auto& child : node.children()) {
        names.emplace_back(child->name());
    }
    return names;
}

} // namespace brimvale::testing
