#pragma once

#include "core/rclone/RcloneConfigDump.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace brimvale {

// One row of the sidebar as the rclone configuration describes it.
struct AccountEntry {
    std::string remoteName;  // the account id
    std::string rcloneType;  // trimmed; the number's text when the dump holds a number
    std::string displayName; // the sidebar label
    std::optional<std::string> accountLabel;
    bool isPlaceholder = false; // a pinned row with no remote behind it yet
    bool readyForUse = false;   // configured and complete enough to scan
    std::optional<RemoteConfigSection> section;
};

// A remote whose type is stored under another name of the same backend, with the name the rest
// of the system uses.
struct AliasedTypeRepair {
    std::string remoteName;
    std::string correctedType;
    friend bool operator==(const AliasedTypeRepair&, const AliasedTypeRepair&) = default;
};

struct AccountDirectory {
    // The configured remotes in the order given, then the pinned placeholders that have no
    // remote of their type.
    std::vector<AccountEntry> accounts;
    std::vector<AliasedTypeRepair> repairs;
};

// The backend types that always have a sidebar row, configured or not: "local" and "dropbox".
const std::vector<std::string>& sidebarPinnedPlaceholderRcloneTypes();

// The type a backend's long name stands for ("google cloud storage" is "gcs"), when
// `configType` is such a name.
std::optional<std::string> correctedAliasedType(std::string_view configType);

// Whether a configured remote can be scanned as it stands: it has a type, and a backend that
// signs in through a browser has its token (a remote left half-made by an interrupted sign-in
// has none).
bool remoteReadyForUse(std::string_view rcloneType, const RemoteConfigSection* section);

// The sidebar's rows for the remotes of `remoteNames` (names are trimmed; the types come from
// the dump). Pure: safe on any thread.
AccountDirectory readAccountDirectory(const std::vector<std::string>& remoteNames,
                                      const RcloneConfigDump& dump);

} // namespace brimvale
