#include "core/onboarding/NativeCredentialConfiguration.h"

#include "core/rclone/GCSScanSettings.h"
#include "core/rclone/ObjectStorageScanPrefix.h"
#include "core/rclone/RcloneAdapter.h"
#include "core/rclone/Utf8Text.h"

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace brimvale {

CredentialFormValidationError::CredentialFormValidationError(std::string remoteName,
                                                             std::string message)
    : BrimvaleError(ScanFailed{std::move(remoteName), std::move(message)}) {}

namespace NativeCredentialConfiguration {
namespace {

// The S3 endpoint domain of Cloudflare R2; each account has its own host under it.
constexpr std::string_view kR2StorageDomain = "r2.cloudflarestorage.com";

std::string trimmed(std::string_view text) {
    return std::string(Utf8Text::trimWhitespaceAndNewlines(text));
}

// One key of a remote's configuration to write.
struct ConfigKey {
    std::string key;
    std::string value;
    bool secret = false; // kept out of errors; rclone obscures those it stores obscured
};

// Writes the remote with its type and keys in one request, secrets only in the request's body.
void writeRemote(const RcloneAdapter& adapter, const std::string& remoteName,
                 const std::string& rcloneType, const std::vector<ConfigKey>& keys,
                 const std::stop_token& stopToken) {
    std::vector<std::pair<std::string, std::string>> settings;
    std::vector<std::string> secrets;
    for (const auto& [key, value, secret] : keys) {
        settings.emplace_back(key, value);
        if (secret) {
            secrets.push_back(value);
        }
    }
    adapter.writeRemoteSettings(remoteName, rcloneType, settings, secrets, stopToken);
}

[[noreturn]] void refuse(const std::string& remoteName, std::string message) {
    throw CredentialFormValidationError(remoteName, std::move(message));
}

// The port to write: a decimal number of at least 1, else nothing (rclone's default).
std::optional<std::string> portToWrite(std::string_view text) {
    if (text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    const int port = std::stoi(std::string(text));
    if (port < 1) {
        return std::nullopt;
    }
    return std::to_string(port);
}

bool fileExists(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    return !error && std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

std::optional<std::string> homeFolderOf(const std::string& user) {
    if (user.empty()) {
        if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
            return std::string(home);
        }
    }
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    const int result =
        user.empty() ? ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found)
                     : ::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
    if (result != 0 || found == nullptr || found->pw_dir == nullptr) {
        return std::nullopt;
    }
    return std::string(found->pw_dir);
}

} // namespace

std::string cloudflareR2Endpoint(std::string_view accountId) {
    return "https://" + std::string(accountId) + "." + std::string(kR2StorageDomain);
}

std::string expandingTildeInPath(std::string_view path) {
    if (!path.starts_with('~')) {
        return std::string(path);
    }
    const std::size_t slash = path.find('/');
    const std::string user(
        path.substr(1, slash == std::string_view::npos ? std::string_view::npos : slash - 1));
    const auto home = homeFolderOf(user);
    if (!home) {
        return std::string(path);
    }
    return *home +
           std::string(slash == std::string_view::npos ? std::string_view() : path.substr(slash));
}

void applyS3AwsConfiguration(const RcloneAdapter& adapter, const std::string& remoteName,
                             const S3AwsCredentialFields& fields, SettingsStore& settings,
                             std::stop_token stopToken) {
    const std::string region = trimmed(fields.region);
    const std::string accessKeyId = trimmed(fields.accessKeyId);
    const std::string secretAccessKey = trimmed(fields.secretAccessKey);
    const std::string bucket = trimmed(fields.bucket);
    if (region.empty()) {
        refuse(remoteName, "Enter an AWS region (e.g. us-east-1).");
    }
    if (accessKeyId.empty() || secretAccessKey.empty()) {
        refuse(remoteName, "Enter access key ID and secret access key.");
    }
    if (bucket.empty()) {
        refuse(remoteName, "Enter a bucket name.");
    }
    writeRemote(adapter, remoteName, "s3",
                {{"provider", "AWS"},
                 {"region", region},
                 {"access_key_id", accessKeyId},
                 {"secret_access_key", secretAccessKey, true}},
                stopToken);
    ObjectStorageScanPrefix::setS3Bucket(settings, bucket, remoteName);
}

void applyS3CloudflareR2Configuration(const RcloneAdapter& adapter, const std::string& remoteName,
                                      const CloudflareR2CredentialFields& fields,
                                      SettingsStore& settings, std::stop_token stopToken) {
    const std::string accountId = trimmed(fields.accountId);
    const std::string accessKeyId = trimmed(fields.accessKeyId);
    const std::string secretAccessKey = trimmed(fields.secretAccessKey);
    const std::string bucket = trimmed(fields.bucket);
    if (accountId.empty()) {
        refuse(remoteName, "Enter your Cloudflare account ID.");
    }
    if (accessKeyId.empty() || secretAccessKey.empty()) {
        refuse(remoteName, "Enter the R2 access key ID and secret.");
    }
    if (bucket.empty()) {
        refuse(remoteName, "Enter a bucket name.");
    }
    writeRemote(adapter, remoteName, "s3",
                {{"provider", "Cloudflare"},
                 {"endpoint", cloudflareR2Endpoint(accountId)},
                 {"region", "auto"},
                 {"access_key_id", accessKeyId},
                 {"secret_access_key", secretAccessKey, true}},
                stopToken);
    ObjectStorageScanPrefix::setS3Bucket(settings, bucket, remoteName);
}

void applyGCSConfiguration(const RcloneAdapter& adapter, const std::string& remoteName,
                           const GCSCredentialFields& fields, SettingsStore& settings,
                           std::stop_token stopToken) {
    const std::string bucket = trimmed(fields.bucket);
    const std::string projectNumber = trimmed(fields.projectNumber);
    const std::string keyFilePath = expandingTildeInPath(trimmed(fields.keyFilePath));
    const std::string serviceAccountJSON = trimmed(fields.serviceAccountJSON);
    if (bucket.empty()) {
        refuse(remoteName, "Enter a bucket name.");
    }
    if (!keyFilePath.empty() && !serviceAccountJSON.empty()) {
        refuse(remoteName, "Use either a key file or pasted JSON\u2014not both.");
    }
    if (keyFilePath.empty() && serviceAccountJSON.empty()) {
        refuse(remoteName, "Choose a service account JSON key file, or paste the JSON.");
    }
    std::vector<ConfigKey> keys;
    if (!keyFilePath.empty()) {
        if (!fileExists(keyFilePath)) {
            refuse(remoteName, "Key file not found at path.");
        }
        // The empty value clears a key pasted earlier, which rclone would prefer.
        keys = {{"service_account_file", keyFilePath}, {"service_account_credentials", ""}};
    } else {
        keys = {{"service_account_credentials", serviceAccountJSON, true}};
    }
    if (!projectNumber.empty()) {
        keys.push_back({"project_number", projectNumber});
    }
    writeRemote(adapter, remoteName, "gcs", keys, stopToken);
    GCSScanSettings::setStoredBucket(settings, bucket, remoteName);
}

void applyAzureBlobAccountKeyConfiguration(const RcloneAdapter& adapter,
                                           const std::string& remoteName,
                                           const AzureBlobCredentialFields& fields,
                                           SettingsStore& settings, std::stop_token stopToken) {
    const std::string account = trimmed(fields.account);
    const std::string storageKey = trimmed(fields.storageKey);
    const std::string container = trimmed(fields.container);
    if (account.empty() || storageKey.empty()) {
        refuse(remoteName, "Enter storage account name and key.");
    }
    if (container.empty()) {
        refuse(remoteName, "Enter a container name.");
    }
    writeRemote(adapter, remoteName, "azureblob", {{"account", account}, {"key", storageKey, true}},
                stopToken);
    ObjectStorageScanPrefix::setAzureContainer(settings, container, remoteName);
}

void applyFTPConfiguration(const RcloneAdapter& adapter, const std::string& remoteName,
                           const FTPCredentialFields& fields, std::stop_token stopToken) {
    const std::string host = trimmed(fields.host);
    const std::string user = trimmed(fields.user);
    const std::string password = trimmed(fields.password);
    const auto port = portToWrite(trimmed(fields.port));
    if (host.empty() || user.empty()) {
        refuse(remoteName, "Enter host and username.");
    }
    std::vector<ConfigKey> keys{{"host", host}, {"user", user}};
    if (port) {
        keys.push_back({"port", *port});
    }
    if (!password.empty()) {
        keys.push_back({"pass", password, true});
    }
    writeRemote(adapter, remoteName, "ftp", keys, stopToken);
}

void applySFTPConfiguration(const RcloneAdapter& adapter, const std::string& remoteName,
                            const SFTPCredentialFields& fields, std::stop_token stopToken) {
    const std::string host = trimmed(fields.host);
    const std::string user = trimmed(fields.user);
    const std::string password = trimmed(fields.password);
    const std::string keyFilePath = expandingTildeInPath(trimmed(fields.keyFilePath));
    const auto port = portToWrite(trimmed(fields.port));
    if (host.empty() || user.empty()) {
        refuse(remoteName, "Enter host and username.");
    }
    if (password.empty() && keyFilePath.empty()) {
        refuse(remoteName, "Enter a password or choose an SSH private key file.");
    }
    if (!keyFilePath.empty() && !fileExists(keyFilePath)) {
        refuse(remoteName, "SSH key file not found.");
    }
    std::vector<ConfigKey> keys{{"host", host}, {"user", user}};
    if (port) {
        keys.push_back({"port", *port});
    }
    if (!keyFilePath.empty()) {
        keys.push_back({"key_file", keyFilePath});
    }
    if (!password.empty()) {
        keys.push_back({"pass", password, true});
    }
    writeRemote(adapter, remoteName, "sftp", keys, stopToken);
}

} // namespace NativeCredentialConfiguration

namespace NativeCredentialFormText {

std::string_view introduction(const NativeCredentialOnboardingKind& kind) {
    using Form = NativeCredentialOnboardingKind::Form;
    switch (kind.form()) {
    case Form::s3:
        if (kind.s3Variant() == S3CatalogVariant::cloudflareR2) {
            return "Use the Cloudflare R2 form: account ID, R2 token keys, and bucket. The app "
                   "sets the R2 S3 endpoint in rclone for you.";
        }
        return "Enter your AWS region, access keys, and bucket. Credentials are saved to your "
               "local rclone configuration.";
    case Form::gcs:
        return "Enter your GCS bucket and service account JSON key below, then save. Google "
               "Cloud Storage does not use browser OAuth here.";
    case Form::azureBlob:
        return "Enter your Azure storage account name, account key, and container to scan.";
    case Form::ftp:
        return "Enter FTP host, username, and optional password or port.";
    case Form::sftp:
        return "Enter SFTP host and user, then a password or SSH private key file.";
    }
    return {};
}

std::string_view submitButtonTitle(NativeCredentialFormPresentation presentation) {
    return presentation == NativeCredentialFormPresentation::addAccountSheet
               ? "Save and add account"
               : "Save and start scanning";
}

} // namespace NativeCredentialFormText

} // namespace brimvale
