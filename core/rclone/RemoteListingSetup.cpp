#include "core/rclone/RemoteListingSetup.h"

#include "core/rclone/GCSScanSettings.h"
#include "core/rclone/ObjectStorageScanPrefix.h"

namespace brimvale {
namespace {

bool filled(const RemoteConfigSection& config, std::string_view key) {
    const auto found = config.find(key);
    return found != config.end() && !found->second.empty();
}

bool truthy(const RemoteConfigSection& config, std::string_view key) {
    const auto found = config.find(key);
    return found != config.end() && found->second == "true";
}

bool hasValue(const std::optional<std::string>& stored) {
    return stored && !stored->empty();
}

} // namespace

bool remoteHasMinimalListingSetup(std::string_view type, std::string_view remoteName,
                                  const RemoteConfigSection& config,
                                  const SettingsStore& settings) {
    if (type == "s3") {
        return hasValue(ObjectStorageScanPrefix::storedS3Bucket(settings, remoteName)) &&
               filled(config, "provider") &&
               (truthy(config, "env_auth") ||
                (filled(config, "access_key_id") && filled(config, "secret_access_key")) ||
                filled(config, "role_arn"));
    }
    if (type == "gcs") {
        return hasValue(GCSScanSettings::storedBucket(settings, remoteName)) &&
               (filled(config, "service_account_file") ||
                filled(config, "service_account_credentials"));
    }
    if (type == "azureblob") {
        return hasValue(ObjectStorageScanPrefix::storedAzureContainer(settings, remoteName)) &&
               (filled(config, "sas_url") || filled(config, "connection_string") ||
                (filled(config, "account") && filled(config, "key")));
    }
    if (type == "ftp") {
        return filled(config, "host") && filled(config, "user");
    }
    if (type == "sftp") {
        return filled(config, "host") && filled(config, "user") &&
               (filled(config, "pass") || filled(config, "key_file") || filled(config, "key_pem"));
    }
    return true;
}

} // namespace brimvale
