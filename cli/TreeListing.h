#pragma once

#include "core/model/FileNode.h"

#include <iosfwd>

namespace brimvale::cli {

struct TreeListingOptions {
    int depth = 1; // folder levels listed
    int top = 10;  // items shown per folder, the largest first
};

// The largest items of each folder with their size, share of the folder and a bar, indented by
// level; what is left out of a folder is summed on one line. Iterative: any depth.
void printTreeListing(std::ostream& out, const FileNode& root, const TreeListingOptions& options);

} // namespace brimvale::cli
