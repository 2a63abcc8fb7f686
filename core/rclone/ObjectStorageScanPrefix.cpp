#include "core/rclone/ObjectStorageScanPrefix.h"

#include "core/persistence/settings/SettingsKeys.h"
#include "core/rclone/TrimmedSetting.h"
#include "core/support/SettingsStore.h"

namespace brimvale {
namespace ObjectStorageScanPrefix {

std::optional<std::string> storedS3Bucket(const SettingsStore& settings,
                                          std::string_view remoteID) {
    return settings.stringValue(SettingsKeys::s3ObjectPrefix(remoteID));
}

void setS3Bucket(SettingsStore& settings, std::string_view bucket, std::string_view remoteID) {
    setTrimmedSetting(settings, SettingsKeys::s3ObjectPrefix(remoteID), bucket);
}

void clearS3Bucket(SettingsStore& settings, std::string_view remoteID) {
    settings.remove(SettingsKeys::s3ObjectPrefix(remoteID));
}

std::optional<std::string> storedAzureContainer(const SettingsStore& settings,
                                                std::string_view remoteID) {
    return settings.stringValue(SettingsKeys::azureObjectPrefix(remoteID));
}

void setAzureContainer(SettingsStore& settings, std::string_view container,
                       std::string_view remoteID) {
    setTrimmedSetting(settings, SettingsKeys::azureObjectPrefix(remoteID), container);
}

void clearAzureContainer(SettingsStore& settings, std::string_view remoteID) {
    settings.remove(SettingsKeys::azureObjectPrefix(remoteID));
}

} // namespace ObjectStorageScanPrefix

} // namespace brimvale
