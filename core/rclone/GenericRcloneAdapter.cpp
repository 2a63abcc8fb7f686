#include "core/rclone/GenericRcloneAdapter.h"

namespace brimvale {

GenericRcloneAdapter::GenericRcloneAdapter(std::string remoteName, std::string backendType,
                                           std::string displayName, RcloneAdapterOptions options)
    : RcloneAdapter(std::move(remoteName), std::move(displayName), std::move(options))
    , backendType_(std::move(backendType)) {}

std::vector<std::string> GenericRcloneAdapter::extraLsjsonFlags() const {
    if (backendType_ == "s3" || backendType_ == "swift") {
        return {"--no-mimetype", "--use-server-modtime"};
    }
    return {};
}

} // namespace brimvale
