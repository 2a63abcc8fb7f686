#pragma once

#include "core/rclone/Utf8Text.h"
#include "core/support/SettingsStore.h"

#include <string>
#include <string_view>

namespace brimvale {

// Stores `value` under `key` trimmed of white space and line breaks, or removes the key when
// nothing is left. Thread safety: as the store's.
inline void setTrimmedSetting(SettingsStore& settings, const std::string& key,
                              std::string_view value) {
    const std::string_view trimmed = Utf8Text::trimWhitespaceAndNewlines(value);
    if (trimmed.empty()) {
        settings.remove(key);
    } else {
        settings.setString(key, trimmed);
    }
}

} // namespace brimvale
