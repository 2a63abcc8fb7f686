#pragma once

#include "core/model/FileNode.h"

#include <string>
#include <string_view>

namespace brimvale {

// `node`'s path below `root` (below the top of its tree when `root` is none), names joined by
// "/": "" for the root itself. Reads parent links.
std::string pathBelow(const FileNode& node, const FileNode* root = nullptr);

// The folder `path` names below `root` ("photos/2024"; "", "/" and "." name `root` itself), or
// null when there is no such folder.
const FileNode* folderBelow(const FileNode& root, std::string_view path);

} // namespace brimvale
