#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

class SettingsStore;

// The bucket a Google Cloud Storage account scans, kept per account in the settings store. A
// set trims white space and line breaks and removes the key when nothing is left. Thread
// safety: as the store's.
namespace GCSScanSettings {

std::optional<std::string> storedBucket(const SettingsStore& settings, std::string_view remoteID);
void setStoredBucket(SettingsStore& settings, std::string_view bucket, std::string_view remoteID);
void clearStoredBucket(SettingsStore& settings, std::string_view remoteID);

} // namespace GCSScanSettings

} // namespace brimvale
