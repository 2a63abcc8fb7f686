#pragma once

#include <optional>
#include <string>

namespace brimvale::cli {

class CoordinatorSession;

// What `scan TARGET` saves its scan under: "gdrive:" names an account, anything else a folder
// of the local disk account ("./a:b" and "/mnt/x:y" are folders).
struct SavedScanTarget {
    std::string key;      // the saved-scan key
    std::string rootName; // "gdrive:" or the folder's absolute location
};

// Throws UsageError for a folder inside an account ("gdrive:Photos"), std::system_error for a
// folder that cannot be resolved, std::runtime_error when no local account exists. Reads the
// account list for a folder.
SavedScanTarget resolveSavedScanTarget(const std::string& target, CoordinatorSession& session);

} // namespace brimvale::cli
