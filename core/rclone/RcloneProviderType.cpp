#include "core/rclone/RcloneProviderType.h"

#include "core/rclone/Utf8Text.h"

namespace brimvale::RcloneProviderType {

std::string canonical(std::string_view configType) {
    return std::string(Utf8Text::trimWhitespaceAndNewlines(configType));
}

} // namespace brimvale::RcloneProviderType
