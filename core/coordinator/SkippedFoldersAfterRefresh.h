#pragma once

#include "core/model/SkippedFolder.h"

#include <string>
#include <vector>

namespace brimvale {

// The unread folders of a tree after one of its folders (`folderPath`, a FileNode::path())
// was listed again: those at or below it go, the refresh's own come in. A local scan names
// unread folders by their absolute location, and the tree holds it without the leading "/"; a
// cloud scan names them below the folder it listed, which for a refresh is the folder itself.
std::vector<SkippedFolder> skippedAfterRefresh(const std::vector<SkippedFolder>& before,
                                               const std::vector<SkippedFolder>& fromRefresh,
                                               const std::string& folderPath, bool isLocal);

} // namespace brimvale
