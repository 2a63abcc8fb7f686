#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

class SettingsStore;

// The scan root of S3 and Azure Blob accounts, kept per account in the settings store: the
// bucket (S3) or container (Azure) whose contents a scan lists. A set trims white space and
// line breaks and removes the key when nothing is left. Thread safety: as the store's.
namespace ObjectStorageScanPrefix {

std::optional<std::string> storedS3Bucket(const SettingsStore& settings, std::string_view remoteID);
void setS3Bucket(SettingsStore& settings, std::string_view bucket, std::string_view remoteID);
void clearS3Bucket(SettingsStore& settings, std::string_view remoteID);

std::optional<std::string> storedAzureContainer(const SettingsStore& settings,
                                                std::string_view remoteID);
void setAzureContainer(SettingsStore& settings, std::string_view container,
                       std::string_view remoteID);
void clearAzureContainer(SettingsStore& settings, std::string_view remoteID);

} // namespace ObjectStorageScanPrefix

} // namespace brimvale
