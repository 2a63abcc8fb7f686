#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// The user's persistent key-value settings: string keys, text and bool values that survive
// restarts. Keys are the ones listed in core/persistence/settings/SettingsKeys.h.
// Thread safety: every operation may be called from any thread.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;

    virtual std::optional<std::string> stringValue(std::string_view key) const = 0;
    virtual void setString(std::string_view key, std::string_view value) = 0;
    // Absent when the key is missing or its value is not a bool.
    virtual std::optional<bool> boolValue(std::string_view key) const = 0;
    virtual void setBool(std::string_view key, bool value) = 0;
    virtual void remove(std::string_view key) = 0;
    virtual bool contains(std::string_view key) const = 0;
    // Every key present, in no particular order.
    virtual std::vector<std::string> keys() const = 0;
};

} // namespace brimvale
