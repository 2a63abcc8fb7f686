#include "core/support/InMemorySettingsStore.h"

namespace brimvale {

std::optional<std::string> InMemorySettingsStore::stringValue(std::string_view key) const {
    std::lock_guard lock(mutex_);
    const auto found = values_.find(key);
    if (found == values_.end()) {
        return std::nullopt;
    }
    if (const auto* text = std::get_if<std::string>(&found->second)) {
        return *text;
    }
    return std::nullopt;
}

void InMemorySettingsStore::setString(std::string_view key, std::string_view value) {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::string(value));
}

std::optional<bool> InMemorySettingsStore::boolValue(std::string_view key) const {
    std::lock_guard lock(mutex_);
    const auto found = values_.find(key);
    if (found == values_.end()) {
        return std::nullopt;
    }
    if (const auto* flag = std::get_if<bool>(&found->second)) {
        return *flag;
    }
    return std::nullopt;
}

void InMemorySettingsStore::setBool(std::string_view key, bool value) {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), value);
}

void InMemorySettingsStore::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    if (const auto found = values_.find(key); found != values_.end()) {
        values_.erase(found);
    }
}

bool InMemorySettingsStore::contains(std::string_view key) const {
    std::lock_guard lock(mutex_);
    return values_.find(key) != values_.end();
}

std::vector<std::string> InMemorySettingsStore::keys() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    result.reserve(values_.size());
    for (const auto& entry : values_) {
        result.push_back(entry.first);
    }
    return result;
}

} // namespace brimvale
