#include "core/rclone/GCSScanSettings.h"

#include "core/persistence/settings/SettingsKeys.h"
#include "core/rclone/TrimmedSetting.h"
#include "core/support/SettingsStore.h"

namespace brimvale {

namespace GCSScanSettings {

std::optional<std::string> storedBucket(const SettingsStore& settings, std::string_view remoteID) {
    return settings.stringValue(SettingsKeys::gcsScanBucket(remoteID));
}

void setStoredBucket(SettingsStore& settings, std::string_view bucket, std::string_view remoteID) {
    setTrimmedSetting(settings, SettingsKeys::gcsScanBucket(remoteID), bucket);
}

void clearStoredBucket(SettingsStore& settings, std::string_view remoteID) {
    settings.remove(SettingsKeys::gcsScanBucket(remoteID));
}

} // namespace GCSScanSettings

} // namespace brimvale
