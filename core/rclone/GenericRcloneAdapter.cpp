#include "core/rclone/GenericRcloneAdapter.h"

namespace brimvale {

GenericRcloneAdapter::GenericRcloneAdapter(std::string remoteName, std::string backendType,
                                           std::string displayName, RcloneAdapterOptions options)
    : RcloneAdapter(std::move(remoteName), std::move(displayName), std::move(options))
    , backendType_(std::move(backendType)) {}

} // namespace brimvale
