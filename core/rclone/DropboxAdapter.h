#pragma once

#include "core/rclone/RcloneAdapter.h"

namespace brimvale {

// A Dropbox remote. Thread safety: as RcloneAdapter.
class DropboxAdapter final : public RcloneAdapter {
public:
    using RcloneAdapter::RcloneAdapter;

    std::string rcloneType() const override { return "dropbox"; }
    // The Dropbox web home at the node's path.
    std::optional<std::string> webURL(const FileNode& node) const override;
};

} // namespace brimvale
