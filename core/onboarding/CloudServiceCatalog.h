#pragma once

#include "core/local/LocalScanOptions.h"
#include "core/model/CloudStorageProvider.h"
#include "core/onboarding/CloudServiceDefinition.h"
#include "core/onboarding/NativeCredentialOnboardingKind.h"
#include "core/onboarding/RcloneBackends.h"
#include "core/rclone/RcloneAdapter.h"
#include "core/rclone/RcloneConfigDump.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// The remote names already present in the rclone configuration.
using RemoteNameSet = std::set<std::string, std::less<>>;

// One account row as the sidebar describes it: a configured remote, or a catalog entry not yet
// configured (a placeholder).
struct CatalogAccountRow {
    std::string remoteName;
    std::string rcloneType;
    // The catalog title chosen by the add-account flow, when it knows it.
    std::optional<std::string> catalogDisplayName;
    // An e-mail address or user name read from the configuration (RemoteAccountLabel).
    std::optional<std::string> accountLabel;
    bool isPlaceholder = false;
};

// What the adapters built by the catalog are given.
struct CatalogAdapterOptions {
    RcloneAdapterOptions rclone;
    LocalScanOptions local;
};

// The services a user can add, which onboarding path each takes (a native credential form or
// rclone's guided configuration), the remote name proposed for a new account, the sidebar
// label of an account and the adapter class that scans it. Onboarding code asks this catalog
// rather than naming service types itself. Text comparisons are exact and case-sensitive.
//
// Thread safety: pure functions of their arguments and the fixed catalog; any thread.
namespace CloudServiceCatalog {

// The twelve rows in the order the add-account sheet lists them; lookups take the first match,
// so a lookup by the type "s3" alone always lands on "Amazon S3".
const std::vector<CloudServiceDefinition>& majorServices();

// The hand-made rows (with rclone's description of their backend), then one row for each other
// backend of `backends`, in rclone's order: titled with its description, proposing its type as
// the remote name. A backend whose description is empty is titled with its name.
std::vector<CloudServiceDefinition> services(const RcloneBackendList& backends);
// Whether the row's title, description or type contains `text` (trimmed; any case). An empty
// text matches every row.
bool matchesSearch(const CloudServiceDefinition& definition, std::string_view text);
// Whether the row is set up with a form made from rclone's description of its backend: every
// row with neither a form of our own nor our browser sign-in (Google Drive, Dropbox, OneDrive,
// Box) nor the local disk.
bool usesGeneratedForm(const CloudServiceDefinition& definition);

// The display name of the first row of that type; an unknown type is shown as itself.
std::string catalogDisplayTitle(std::string_view rcloneType);

// The form for a type alone ("s3" means AWS); nothing for guided types.
std::optional<NativeCredentialOnboardingKind> nativeOnboardingKind(std::string_view rcloneType);
// The form for a catalog row; an "s3" row without a variant has none.
std::optional<NativeCredentialOnboardingKind>
nativeOnboardingKind(const CloudServiceDefinition& definition);
// The form for an existing account: an "s3" remote whose provider (trimmed) is exactly
// "Cloudflare" is R2, every other "s3" remote AWS.
std::optional<NativeCredentialOnboardingKind>
nativeOnboardingKindForRemote(std::string_view remoteID, std::string_view rcloneType,
                              const RcloneConfigDump& dump);

bool usesNativeGCSCredentialForm(std::string_view rcloneType);
// Always false: no type is routed to the web configuration helper, but callers ask here.
bool usesCredentialWebConfigurator(std::string_view rcloneType);

// A remote name for a new account that is not taken: the stem, else stem_2, stem_3, …
std::string suggestedUnusedRemoteName(const CloudServiceDefinition& definition,
                                      const RemoteNameSet& takenRemoteNames);
// The stem is the default remote name of the first row of the type, or the type with its
// spaces replaced by "_".
std::string suggestedUnusedRemoteNameForRcloneType(std::string_view rcloneType,
                                                   const RemoteNameSet& takenRemoteNames);
// The stem is trimmed first; an empty stem gives "remote", even when that is taken.
std::string suggestedUnusedRemoteNameForStem(std::string_view stem,
                                             const RemoteNameSet& takenRemoteNames);

// "Google Drive (someone@example.com)" for a configured remote; the catalog title for a
// placeholder ("Cloudflare R2" for an "s3" placeholder named "r2").
std::string sidebarLabel(const CatalogAccountRow& row);

// A new adapter for the row, named with sidebarLabel(row): GoogleDriveAdapter for "drive",
// DropboxAdapter for "dropbox", LocalDiskAdapter (no volume chosen) for "local",
// GenericRcloneAdapter for every other type.
std::unique_ptr<CloudStorageProvider> adapter(const CatalogAccountRow& row,
                                              CatalogAdapterOptions options = {});

} // namespace CloudServiceCatalog

} // namespace brimvale
