#pragma once

#include "core/model/FileNode.h"

#include <string>

namespace brimvale {

// `node`'s path below `root` (below the top of its tree when `root` is none), names joined by
// "/": "" for the root itself. Reads parent links.
std::string pathBelow(const FileNode& node, const FileNode* root = nullptr);

} // namespace brimvale
