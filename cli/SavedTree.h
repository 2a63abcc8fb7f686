#pragma once

#include "cli/CommandLine.h"
#include "core/model/FileNode.h"

#include <optional>
#include <string>

namespace brimvale::cli {

// The saved scan a command's TARGET names (a folder or "account:", as scan takes it), read
// from the cache without scanning or touching the network.
struct SavedTree {
    FileNodeRef root;
    std::string rootName; // "gdrive:" or the folder's absolute location
};

// Writes why there is none to `streams.err` ("brimvale-cli COMMAND: …") and returns none when
// the target cannot be resolved, has no saved scan or its saved scan is damaged. Throws
// UsageError for a folder inside an account.
std::optional<SavedTree> readSavedTree(const std::string& target, const char* command,
                                       CommandStreams streams);

// `node`'s path below `root`, names joined by "/" ("" for the root itself). Reads parent links.
std::string pathBelow(const FileNode& node, const FileNode& root);

// Keeps a large tree until the program exits, so it is not freed node by node after the output
// (still reachable: not a leak to a checker). Only for the program's own standard output.
void keepUntilExit(FileNodeRef root);

} // namespace brimvale::cli
