#include "core/rclone/DropboxAdapter.h"

namespace brimvale {

std::optional<std::string> DropboxAdapter::webURL(const FileNode& node) const {
    return RemoteWebURL::url("dropbox", node);
}

} // namespace brimvale
