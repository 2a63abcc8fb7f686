#include "core/rclone/GoogleDriveAdapter.h"

namespace brimvale {

std::vector<std::string> GoogleDriveAdapter::extraLsjsonFlags() const {
    return {"--exclude", "Shared with me/**", "--drive-skip-shortcuts", "--drive-size-as-quota"};
}

std::optional<std::string> GoogleDriveAdapter::webURL(const FileNode& node) const {
    return RemoteWebURL::url("drive", node);
}

} // namespace brimvale
