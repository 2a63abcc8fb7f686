#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brimvale {

// One element of an `rclone lsjson` array. Plain data.
struct RcloneEntry {
    std::string path;                    // "Path"
    std::string name;                    // "Name"
    std::int64_t rawSize = 0;            // "Size"; -1 for folders and unknown sizes
    std::optional<std::string> modTime;  // "ModTime", ISO 8601 as rclone wrote it
    bool isDir = false;                  // "IsDir"
    std::optional<std::string> id;       // "ID", the provider's object id
    std::optional<std::string> mimeType; // "MimeType"

    friend bool operator==(const RcloneEntry&, const RcloneEntry&) = default;
};

} // namespace brimvale
