#pragma once

#include "core/rclone/RcloneAdapter.h"

namespace brimvale {

// An rclone remote of any backend without an adapter of its own. Thread safety: as
// RcloneAdapter.
class GenericRcloneAdapter final : public RcloneAdapter {
public:
    GenericRcloneAdapter(std::string remoteName, std::string backendType, std::string displayName,
                         RcloneAdapterOptions options = {});

    std::string rcloneType() const override { return backendType_; }
    // Object stores whose listings carry neither MIME type nor the original modification time
    // ("s3", "swift") would cost one metadata request per object for them; their listings take
    // the upload time the listing has and no MIME type instead.
    std::vector<std::string> extraLsjsonFlags() const override;

private:
    std::string backendType_;
};

} // namespace brimvale
