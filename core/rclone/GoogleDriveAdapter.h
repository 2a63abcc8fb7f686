#pragma once

#include "core/rclone/RcloneAdapter.h"

namespace brimvale {

// A Google Drive remote: listings leave out "Shared with me" and shortcuts and count Google
// documents by their quota size. Thread safety: as RcloneAdapter.
class GoogleDriveAdapter final : public RcloneAdapter {
public:
    using RcloneAdapter::RcloneAdapter;

    std::string rcloneType() const override { return "drive"; }
    std::vector<std::string> extraLsjsonFlags() const override;
    // The file or folder page of the node's Drive id; nothing without an id.
    std::optional<std::string> webURL(const FileNode& node) const override;
};

} // namespace brimvale
