#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

// Which S3-protocol service a catalog row stands for. Value type.
enum class S3CatalogVariant { standardAws, cloudflareR2 };

// "standardAws" or "cloudflareR2".
std::string_view rawValue(S3CatalogVariant variant);
// The variant whose raw value is exactly `text`; nothing for any other text.
std::optional<S3CatalogVariant> s3CatalogVariantFromRawValue(std::string_view text);

// A service the user can add as an account: one row of CloudServiceCatalog::majorServices(),
// or of CloudServiceCatalog::services() for every backend of the installed rclone.
// Value type: equatable, hashable (std::hash), safe to copy between threads.
struct CloudServiceDefinition {
    // The rclone backend type written as `type` into the remote's configuration.
    std::string rcloneType;
    // The title shown to the user.
    std::string displayName;
    // The stem of the remote name proposed for a new account.
    std::string defaultRemoteName;
    // Set only for the two S3-protocol rows.
    std::optional<S3CatalogVariant> s3Variant;
    // rclone's description of the backend, which search looks in too; empty when unknown.
    std::string description;

    friend bool operator==(const CloudServiceDefinition&, const CloudServiceDefinition&) = default;
};

} // namespace brimvale

template <> struct std::hash<brimvale::CloudServiceDefinition> {
    std::size_t operator()(const brimvale::CloudServiceDefinition& definition) const noexcept;
};
