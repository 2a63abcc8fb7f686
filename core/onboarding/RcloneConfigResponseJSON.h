#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

// One question of rclone's non-interactive configuration protocol. Absent text fields are
// empty; absent booleans false.
struct RcloneConfigOptionJSON {
    std::string name;       // "Name": the configuration key asked for
    std::string type;       // "Type": rclone's option type, e.g. "bool"
    std::string defaultStr; // "DefaultStr": the default rendered as text
    std::string help;       // "Help"
    bool required = false;  // "Required"
    bool exclusive = false; // "Exclusive": the answer must be one of the listed examples

    friend bool operator==(const RcloneConfigOptionJSON&, const RcloneConfigOptionJSON&) = default;
};

// What one step of `rclone config create/update --non-interactive` printed on standard output.
struct RcloneConfigResponseJSON {
    std::string state; // "State": continuation token; empty when configuration is finished
    std::optional<RcloneConfigOptionJSON> option; // "Option"; absent (or null) when finished
    std::string error;                            // "Error": rclone's error text, or empty

    friend bool operator==(const RcloneConfigResponseJSON&,
                           const RcloneConfigResponseJSON&) = default;
};

// Decodes one step's standard output (trimmed of white space and line breaks first). Keys are
// case-sensitive and optional; null counts as absent; other keys are ignored. Throws
// BrimvaleError::scanFailed(remoteName, "config: invalid UTF-8") for bytes that are not UTF-8
// and scanFailed(remoteName, "Invalid configuration data: " + why) for anything that is not
// such an object (empty output included, a field of the wrong JSON type, nesting deeper than
// kMaximumConfigJsonNesting). Pure: safe on any thread.
RcloneConfigResponseJSON parseRcloneConfigResponse(std::string_view output,
                                                   const std::string& remoteName);

} // namespace brimvale
