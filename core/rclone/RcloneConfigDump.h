#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// One remote's settings from `rclone config dump`, every value as text: strings as they are,
// numbers in decimal, booleans as "true" or "false", objects and arrays as their JSON text;
// null values are left out.
using RemoteConfigSection = std::map<std::string, std::string, std::less<>>;
// Remote name → its settings.
using RcloneConfigDump = std::map<std::string, RemoteConfigSection, std::less<>>;

// A remote of the configuration with its backend type (canonical, see RcloneProviderType).
struct ConfiguredRemote {
    std::string name;
    std::string type;
    friend bool operator==(const ConfiguredRemote&, const ConfiguredRemote&) = default;
};

// Decodes the standard output of `rclone config dump`: a JSON object of remote name → object
// of settings. Entries whose value is not an object are skipped. Throws
// BrimvaleError::parseError when the text is not such an object or nests deeper than
// kMaximumConfigJsonNesting. Pure: safe on any thread.
RcloneConfigDump parseConfigDump(std::string_view json);

// The remotes of a dump in name order, with their canonical types ("" when a remote has
// none).
std::vector<ConfiguredRemote> configuredRemotes(const RcloneConfigDump& dump);

} // namespace brimvale
