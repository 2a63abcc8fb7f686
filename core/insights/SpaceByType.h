#pragma once

#include "core/insights/FileCategory.h"
#include "core/model/FileNode.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace brimvale {

struct TypeTotal {
    std::int64_t bytes = 0; // saturates at the largest size
    std::int64_t files = 0;
};

struct ExtensionTotal {
    std::string extension; // lower case, without the dot
    FileCategory category = FileCategory::other;
    TypeTotal total;
};

// Where the space of a subtree goes by kind of file. Folders count only through their files.
struct SpaceByType {
    TypeTotal all;
    std::array<TypeTotal, kFileCategoryCount> byCategory;
    // The extensions that take the most bytes, most first (equal bytes: more files first, then
    // by extension), at most the number asked for.
    std::vector<ExtensionTotal> topExtensions;
    // The files of every other extension, and of none.
    TypeTotal otherExtensions;
    TypeTotal noExtension;
};

// Totals the files under `folder` (the folder itself when it is a file) in one pass; reads the
// tree on the calling thread, which must own it.
SpaceByType spaceByType(const FileNode& folder, std::size_t extensionCount = 20);

} // namespace brimvale
