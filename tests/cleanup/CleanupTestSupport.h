#pragma once

#include "core/model/FileNode.h"

#include <filesystem>
#include <string>

namespace brimvale::testing {

// The saved scan of `stem` in the cache folder of a CliProgram home, decoded; null when none.
FileNodeRef savedTree(const std::filesystem::path& home, const std::string& stem);
// The saved scan of the local folder `location`.
FileNodeRef savedLocalTree(const std::filesystem::path& home, const std::string& location);
// The child of `folder` named `name`, or null.
const FileNode* childNamed(const FileNode& folder, std::string_view name);
// Every folder's size is the sum of its children's, and the children are in size order.
void expectRolledUpAndSorted(const FileNode& folder);

} // namespace brimvale::testing
