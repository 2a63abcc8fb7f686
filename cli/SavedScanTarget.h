#pragma once

#include "core/coordinator/ScannerState.h"

#include <optional>
#include <string>
#include <string_view>

namespace brimvale {
class ScannerViewModel;
}

namespace brimvale::cli {

class CoordinatorSession;

// The account a command's TARGET names: "gdrive:" names one, as does any text whose first colon
// comes before its first slash, as in rclone; "./a:b" and "/mnt/x:y" are folders (none). A folder
// inside an account ("gdrive:Photos") is a UsageError whose message ends with `advice`.
std::optional<std::string> accountInTarget(const std::string& target, std::string_view advice);

// The local account a folder is scanned and saved with: the first configured one, else the
// sidebar's pinned local row; none when neither exists.
ProviderRef localAccount(const ScannerViewModel& viewModel);

// What `scan TARGET` saves its scan under: "gdrive:" names an account, anything else a folder
// of the local disk account ("./a:b" and "/mnt/x:y" are folders).
struct SavedScanTarget {
    std::string key;      // the saved-scan key
    std::string rootName; // "gdrive:" or the folder's absolute location
};

// Throws UsageError for a folder inside an account ("gdrive:Photos"), std::system_error for a
// folder that cannot be resolved, std::runtime_error when no local account exists. Reads the
// account list for a folder when no earlier reading chose the local account.
SavedScanTarget resolveSavedScanTarget(const std::string& target, CoordinatorSession& session);

} // namespace brimvale::cli
