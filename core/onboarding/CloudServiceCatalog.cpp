#include "core/onboarding/CloudServiceCatalog.h"

#include "core/local/LocalDiskAdapter.h"
#include "core/rclone/DropboxAdapter.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"
#include "core/rclone/Utf8Text.h"

#include <algorithm>
#include <set>

namespace brimvale {

std::string_view rawValue(S3CatalogVariant variant) {
    switch (variant) {
    case S3CatalogVariant::standardAws:
        return "standardAws";
    case S3CatalogVariant::cloudflareR2:
        return "cloudflareR2";
    }
    return {};
}

std::optional<S3CatalogVariant> s3CatalogVariantFromRawValue(std::string_view text) {
    for (const auto variant : {S3CatalogVariant::standardAws, S3CatalogVariant::cloudflareR2}) {
        if (rawValue(variant) == text) {
            return variant;
        }
    }
    return std::nullopt;
}

namespace CloudServiceCatalog {
namespace {

const CloudServiceDefinition* firstRowOfType(std::string_view rcloneType) {
    const auto& rows = majorServices();
    const auto row = std::ranges::find(rows, rcloneType, &CloudServiceDefinition::rcloneType);
    return row == rows.end() ? nullptr : &*row;
}

// A backend's description up to its first aside: "OpenStack Swift (Rackspace Cloud Files, …)"
// is titled "OpenStack Swift", "Amazon S3 Compliant Storage Providers including AWS, …"
// "Amazon S3 Compliant Storage Providers".
std::string titleOf(const RcloneBackend& backend) {
    std::string_view title = backend.description;
    for (const std::string_view aside : {" (", " including "}) {
        if (const std::size_t at = title.find(aside); at != std::string_view::npos && at > 0) {
            title = title.substr(0, at);
        }
    }
    title = Utf8Text::trimWhitespaceAndNewlines(title);
    return title.empty() ? backend.name : std::string(title);
}

} // namespace

const std::vector<CloudServiceDefinition>& majorServices() {
    static const std::vector<CloudServiceDefinition> rows{
        {"drive", "Google Drive", "gdrive", std::nullopt},
        {"dropbox", "Dropbox", "dropbox", std::nullopt},
        {"onedrive", "OneDrive", "onedrive", std::nullopt},
        {"local", "Local disk", "localdisk", std::nullopt},
        {"s3", "Amazon S3", "s3", S3CatalogVariant::standardAws},
        {"s3", "Cloudflare R2", "r2", S3CatalogVariant::cloudflareR2},
        {"gcs", "Google Cloud Storage", "gcs", std::nullopt},
        {"azureblob", "Azure Blob Storage", "azureblob", std::nullopt},
        {"box", "Box", "box", std::nullopt},
        {"mega", "MEGA", "mega", std::nullopt},
        {"sftp", "SFTP", "sftp", std::nullopt},
        {"ftp", "FTP", "ftp", std::nullopt},
    };
    return rows;
}

std::vector<CloudServiceDefinition> services(const RcloneBackendList& backends) {
    std::vector<CloudServiceDefinition> rows = majorServices();
    for (auto& row : rows) {
        const auto backend = std::ranges::find(backends, row.rcloneType, &RcloneBackend::type);
        if (backend != backends.end()) {
            row.description = backend->description;
        }
    }
    for (const auto& backend : backends) {
        // The S3 rows are two providers of many: the others get the generated form.
        const bool ownRow = std::ranges::any_of(majorServices(), [&](const auto& row) {
            return row.rcloneType == backend.type && !row.s3Variant;
        });
        if (ownRow) {
            continue;
        }
        std::string stem = backend.type;
        std::ranges::replace(stem, ' ', '_');
        rows.push_back({.rcloneType = backend.type,
                        .displayName = titleOf(backend),
                        .defaultRemoteName = std::move(stem),
                        .s3Variant = std::nullopt,
                        .description = backend.description});
    }
    return rows;
}

bool matchesSearch(const CloudServiceDefinition& definition, std::string_view text) {
    const std::string_view needle = Utf8Text::trimWhitespaceAndNewlines(text);
    return needle.empty() || Utf8Text::containsIgnoringCase(definition.displayName, needle) ||
           Utf8Text::containsIgnoringCase(definition.description, needle) ||
           Utf8Text::containsIgnoringCase(definition.rcloneType, needle);
}

bool usesGeneratedForm(const CloudServiceDefinition& definition) {
    static const std::set<std::string, std::less<>> kOwnSetUp{"drive", "dropbox", "onedrive", "box",
                                                              "local"};
    return !nativeOnboardingKind(definition) && !kOwnSetUp.contains(definition.rcloneType);
}

std::string catalogDisplayTitle(std::string_view rcloneType) {
    const auto* row = firstRowOfType(rcloneType);
    return row != nullptr ? row->displayName : std::string(rcloneType);
}

std::optional<NativeCredentialOnboardingKind> nativeOnboardingKind(std::string_view rcloneType) {
    if (rcloneType == "gcs") {
        return NativeCredentialOnboardingKind::gcs();
    }
    if (rcloneType == "azureblob") {
        return NativeCredentialOnboardingKind::azureBlob();
    }
    if (rcloneType == "ftp") {
        return NativeCredentialOnboardingKind::ftp();
    }
    if (rcloneType == "sftp") {
        return NativeCredentialOnboardingKind::sftp();
    }
    if (rcloneType == "s3") {
        return NativeCredentialOnboardingKind::s3(S3CatalogVariant::standardAws);
    }
    return std::nullopt;
}

std::optional<NativeCredentialOnboardingKind>
nativeOnboardingKind(const CloudServiceDefinition& definition) {
    const std::string_view type = definition.rcloneType;
    if (type == "gcs") {
        return NativeCredentialOnboardingKind::gcs();
    }
    if (type == "s3") {
        if (definition.s3Variant) {
            return NativeCredentialOnboardingKind::s3(*definition.s3Variant);
        }
        return std::nullopt;
    }
    if (type == "azureblob" || type == "ftp" || type == "sftp") {
        return nativeOnboardingKind(type);
    }
    return std::nullopt;
}

std::optional<NativeCredentialOnboardingKind>
nativeOnboardingKindForRemote(std::string_view remoteID, std::string_view rcloneType,
                              const RcloneConfigDump& dump) {
    if (rcloneType != "s3") {
        return nativeOnboardingKind(rcloneType);
    }
    std::string_view provider;
    if (const auto section = dump.find(remoteID); section != dump.end()) {
        if (const auto value = section->second.find("provider"); value != section->second.end()) {
            provider = value->second;
        }
    }
    return NativeCredentialOnboardingKind::s3(Utf8Text::trimWhitespaceAndNewlines(provider) ==
                                                      "Cloudflare"
                                                  ? S3CatalogVariant::cloudflareR2
                                                  : S3CatalogVariant::standardAws);
}

bool usesNativeGCSCredentialForm(std::string_view rcloneType) {
    return rcloneType == "gcs";
}

bool usesCredentialWebConfigurator(std::string_view) {
    return false;
}

std::string suggestedUnusedRemoteName(const CloudServiceDefinition& definition,
                                      const RemoteNameSet& takenRemoteNames) {
    return suggestedUnusedRemoteNameForStem(definition.defaultRemoteName, takenRemoteNames);
}

std::string suggestedUnusedRemoteNameForRcloneType(std::string_view rcloneType,
                                                   const RemoteNameSet& takenRemoteNames) {
    if (const auto* row = firstRowOfType(rcloneType)) {
        return suggestedUnusedRemoteNameForStem(row->defaultRemoteName, takenRemoteNames);
    }
    std::string stem(rcloneType);
    std::ranges::replace(stem, ' ', '_');
    return suggestedUnusedRemoteNameForStem(stem, takenRemoteNames);
}

std::string suggestedUnusedRemoteNameForStem(std::string_view stem,
                                             const RemoteNameSet& takenRemoteNames) {
    const std::string trimmed(Utf8Text::trimWhitespaceAndNewlines(stem));
    if (trimmed.empty()) {
        // Deliberately not checked against the taken names.
        return "remote";
    }
    if (!takenRemoteNames.contains(trimmed)) {
        return trimmed;
    }
    // The set is finite, so a free number is found within size() + 1 tries.
    for (std::size_t number = 2;; ++number) {
        std::string candidate = trimmed + "_" + std::to_string(number);
        if (!takenRemoteNames.contains(candidate)) {
            return candidate;
        }
    }
}

std::string sidebarLabel(const CatalogAccountRow& row) {
    if (!row.isPlaceholder) {
        const std::string& account = row.accountLabel ? *row.accountLabel : row.remoteName;
        if (firstRowOfType(row.rcloneType) == nullptr) {
            return row.rcloneType + " (" + account + ")";
        }
        const std::string title =
            row.catalogDisplayName ? *row.catalogDisplayName : catalogDisplayTitle(row.rcloneType);
        return title + " (" + account + ")";
    }
    if (row.catalogDisplayName) {
        return *row.catalogDisplayName;
    }
    for (const auto& definition : majorServices()) {
        if (definition.rcloneType == row.rcloneType &&
            definition.defaultRemoteName == row.remoteName) {
            return definition.displayName;
        }
    }
    return catalogDisplayTitle(row.rcloneType);
}

std::unique_ptr<CloudStorageProvider> adapter(const CatalogAccountRow& row,
                                              CatalogAdapterOptions options) {
    std::string label = sidebarLabel(row);
    if (row.rcloneType == "drive") {
        return std::make_unique<GoogleDriveAdapter>(row.remoteName, std::move(label),
                                                    std::move(options.rclone));
    }
    if (row.rcloneType == "dropbox") {
        return std::make_unique<DropboxAdapter>(row.remoteName, std::move(label),
                                                std::move(options.rclone));
    }
    if (row.rcloneType == "local") {
        return std::make_unique<LocalDiskAdapter>(row.remoteName, std::move(label),
                                                  std::move(options.local));
    }
    return std::make_unique<GenericRcloneAdapter>(row.remoteName, row.rcloneType, std::move(label),
                                                  std::move(options.rclone));
}

} // namespace CloudServiceCatalog

} // namespace brimvale

std::size_t std::hash<brimvale::CloudServiceDefinition>::operator()(
    const brimvale::CloudServiceDefinition& definition) const noexcept {
    std::size_t seed = 0;
    const auto combine = [&seed](std::size_t value) {
        seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
    };
    combine(std::hash<std::string>{}(definition.rcloneType));
    combine(std::hash<std::string>{}(definition.displayName));
    combine(std::hash<std::string>{}(definition.defaultRemoteName));
    combine(definition.s3Variant ? static_cast<std::size_t>(*definition.s3Variant) + 1 : 0);
    combine(std::hash<std::string>{}(definition.description));
    return seed;
}
