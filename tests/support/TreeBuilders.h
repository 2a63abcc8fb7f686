#pragma once

#include "core/model/FileNode.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace brimvale::testing {

// A file node named `name` at path "/" + name.
FileNodeRef file(const std::string& name, std::int64_t size);
// A folder node with `children` (parent links not set); its size is left at 0.
FileNodeRef folder(const std::string& name, std::vector<FileNodeRef> children);
// The names of a node's children, in their order.
std::vector<std::string> childNames(const FileNode& node);

} // namespace brimvale::testing
