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

private:
    std::string backendType_;
};

} // namespace brimvale
