#pragma once

#include "core/support/SettingsStore.h"

#include <map>
#include <mutex>
#include <variant>

namespace brimvale {

// A settings store that lives only as long as the object: for tests and for runs that must not
// touch the user's settings.
class InMemorySettingsStore final : public SettingsStore {
public:
    std::optional<std::string> stringValue(std::string_view key) const override;
    void setString(std::string_view key, std::string_view value) override;
    std::optional<bool> boolValue(std::string_view key) const override;
    void setBool(std::string_view key, bool value) override;
    void remove(std::string_view key) override;
    bool contains(std::string_view key) const override;
    std::vector<std::string> keys() const override;

private:
    mutable std::mutex mutex_; // guards values_
    std::map<std::string, std::variant<std::string, bool>, std::less<>> values_;
};

} // namespace brimvale
