#include "core/onboarding/CloudServiceCatalog.h"

#include "core/local/LocalDiskAdapter.h"
#include "core/rclone/DropboxAdapter.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"

#include <gtest/gtest.h>

#include <unordered_set>

namespace brimvale {
namespace {

namespace Catalog = CloudServiceCatalog;
using Kind = NativeCredentialOnboardingKind;

TEST(CloudServiceCatalog, RowsAndTitlesWithTheTwoS3Rows) {
    const auto& rows = Catalog::majorServices();
    ASSERT_EQ(rows.size(), 12u);
    std::vector<std::string> table;
    for (const auto& row : rows) {
        table.push_back(row.rcloneType + "|" + row.displayName + "|" + row.defaultRemoteName + "|" +
                        (row.s3Variant ? std::string(rawValue(*row.s3Variant)) : "-"));
    }
    EXPECT_EQ(table,
              (std::vector<std::string>{
                  "drive|Google Drive|gdrive|-", "dropbox|Dropbox|dropbox|-",
                  "onedrive|OneDrive|onedrive|-", "local|Local disk|localdisk|-",
                  "s3|Amazon S3|s3|standardAws", "s3|Cloudflare R2|r2|cloudflareR2",
                  "gcs|Google Cloud Storage|gcs|-", "azureblob|Azure Blob Storage|azureblob|-",
                  "box|Box|box|-", "mega|MEGA|mega|-", "sftp|SFTP|sftp|-", "ftp|FTP|ftp|-"}));
    // The same list every time, and rows usable as set members.
    EXPECT_EQ(&Catalog::majorServices(), &rows);
    const std::unordered_set<CloudServiceDefinition> distinct(rows.begin(), rows.end());
    EXPECT_EQ(distinct.size(), 12u);
    EXPECT_NE(rows[4], rows[5]);

    EXPECT_EQ(s3CatalogVariantFromRawValue("cloudflareR2"), S3CatalogVariant::cloudflareR2);
    EXPECT_EQ(s3CatalogVariantFromRawValue("standardAws"), S3CatalogVariant::standardAws);
    EXPECT_EQ(s3CatalogVariantFromRawValue("CloudflareR2"), std::nullopt);
    EXPECT_EQ(s3CatalogVariantFromRawValue(""), std::nullopt);

    // Lookups by type land on the first row; unknown types show as themselves.
    EXPECT_EQ(Catalog::catalogDisplayTitle("s3"), "Amazon S3");
    EXPECT_EQ(Catalog::catalogDisplayTitle("r2"), "r2");
    EXPECT_EQ(Catalog::catalogDisplayTitle("Drive"), "Drive");
    EXPECT_EQ(Catalog::catalogDisplayTitle(""), "");
    EXPECT_EQ(Catalog::catalogDisplayTitle("mega"), "MEGA");
}

TEST(CloudServiceCatalog, NativeFormsByTypeRowAndExistingRemote) {
    EXPECT_EQ(Catalog::nativeOnboardingKind("s3"), Kind::s3(S3CatalogVariant::standardAws));
    EXPECT_EQ(Catalog::nativeOnboardingKind("gcs"), Kind::gcs());
    EXPECT_EQ(Catalog::nativeOnboardingKind("azureblob"), Kind::azureBlob());
    EXPECT_EQ(Catalog::nativeOnboardingKind("ftp"), Kind::ftp());
    EXPECT_EQ(Catalog::nativeOnboardingKind("sftp"), Kind::sftp());
    for (const char* guided : {"drive", "dropbox", "local", "mega", "S3", " s3", ""}) {
        EXPECT_EQ(Catalog::nativeOnboardingKind(guided), std::nullopt) << guided;
    }
    EXPECT_NE(Kind::s3(S3CatalogVariant::standardAws), Kind::s3(S3CatalogVariant::cloudflareR2));
    EXPECT_NE(Kind::gcs(), Kind::azureBlob());

    const auto& rows = Catalog::majorServices();
    EXPECT_EQ(Catalog::nativeOnboardingKind(rows[5]), Kind::s3(S3CatalogVariant::cloudflareR2));
    EXPECT_EQ(Catalog::nativeOnboardingKind(rows[4]), Kind::s3(S3CatalogVariant::standardAws));
    EXPECT_EQ(Catalog::nativeOnboardingKind(rows[0]), std::nullopt);
    EXPECT_EQ(Catalog::nativeOnboardingKind(rows[11]), Kind::ftp());
    // An "s3" definition without a variant is not a native form.
    EXPECT_EQ(Catalog::nativeOnboardingKind(CloudServiceDefinition{"s3", "Other S3", "o", {}}),
              std::nullopt);

    const RcloneConfigDump dump{
        {"r2", {{"type", "s3"}, {"provider", " Cloudflare\n"}}},
        {"lower", {{"type", "s3"}, {"provider", "cloudflare"}}},
        {"aws", {{"type", "s3"}, {"provider", "AWS"}}},
        {"bare", {{"type", "s3"}}},
    };
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("r2", "s3", dump),
              Kind::s3(S3CatalogVariant::cloudflareR2));
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("lower", "s3", dump),
              Kind::s3(S3CatalogVariant::standardAws));
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("bare", "s3", dump),
              Kind::s3(S3CatalogVariant::standardAws));
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("missing", "s3", dump),
              Kind::s3(S3CatalogVariant::standardAws));
    // Other types ignore the dump, even a provider that says Cloudflare.
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("r2", "sftp", dump), Kind::sftp());
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("r2", "drive", dump), std::nullopt);

    EXPECT_TRUE(Catalog::usesNativeGCSCredentialForm("gcs"));
    EXPECT_FALSE(Catalog::usesNativeGCSCredentialForm("GCS"));
    for (const char* type : {"drive", "s3", "gcs", "no such type", ""}) {
        EXPECT_FALSE(Catalog::usesCredentialWebConfigurator(type)) << type;
    }
}

TEST(CloudServiceCatalog, ProposedRemoteNamesSkipTakenOnes) {
    const auto& rows = Catalog::majorServices();
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[0], {}), "gdrive");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[0], {"gdrive", "gdrive_2"}), "gdrive_3");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[0], {"gdrive_2"}), "gdrive");
    // Numbering starts at 2 and is case-sensitive.
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[0], {"gdrive", "gdrive_1"}), "gdrive_2");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[0], {"GDRIVE"}), "gdrive");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[5], {"s3"}), "r2");

    // By type: the first row's stem, never "r2"; unknown types with spaces made "_".
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForRcloneType("s3", {"s3"}), "s3_2");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForRcloneType("my box", {}), "my_box");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForRcloneType("my box", {"my_box"}), "my_box_2");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForRcloneType(" seafile ", {}), "_seafile_");

    // Stems are trimmed; a blank stem gives "remote" even when it is taken.
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForStem("  ", {"remote"}), "remote");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForStem("\n", {}), "remote");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForStem(" box\t", {"box"}), "box_2");

    // Many taken names: the first free number, not one past the count.
    RemoteNameSet taken{"n"};
    for (int number = 2; number <= 500; ++number) {
        if (number != 317) {
            taken.insert("n_" + std::to_string(number));
        }
    }
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForStem("n", taken), "n_317");
}

TEST(CloudServiceCatalog, SidebarLabelsAndAdapterClasses) {
    using Row = CatalogAccountRow;
    EXPECT_EQ(Catalog::sidebarLabel(
                  Row{.remoteName = "gd", .rcloneType = "drive", .accountLabel = "me@example.com"}),
              "Google Drive (me@example.com)");
    EXPECT_EQ(Catalog::sidebarLabel(Row{.remoteName = "gd", .rcloneType = "drive"}),
              "Google Drive (gd)");
    EXPECT_EQ(Catalog::sidebarLabel(Row{
                  .remoteName = "r2", .rcloneType = "s3", .catalogDisplayName = "Cloudflare R2"}),
              "Cloudflare R2 (r2)");
    // A type outside the catalog shows its raw type, whatever title was given.
    EXPECT_EQ(Catalog::sidebarLabel(Row{.remoteName = "sf",
                                        .rcloneType = "seafile",
                                        .catalogDisplayName = "Seafile",
                                        .accountLabel = "u"}),
              "seafile (u)");

    const auto placeholder = [](std::string name, std::string type) {
        return Catalog::sidebarLabel(Row{
            .remoteName = std::move(name), .rcloneType = std::move(type), .isPlaceholder = true});
    };
    EXPECT_EQ(placeholder("r2", "s3"), "Cloudflare R2");
    EXPECT_EQ(placeholder("s3", "s3"), "Amazon S3");
    EXPECT_EQ(placeholder("bucket", "s3"), "Amazon S3");
    EXPECT_EQ(placeholder("dropbox", "dropbox"), "Dropbox");
    EXPECT_EQ(placeholder("x", "webdav"), "webdav");
    EXPECT_EQ(Catalog::sidebarLabel(Row{.remoteName = "r2",
                                        .rcloneType = "s3",
                                        .catalogDisplayName = "Mine",
                                        .isPlaceholder = true}),
              "Mine");

    const auto drive = Catalog::adapter(
        Row{.remoteName = "gd", .rcloneType = "drive", .accountLabel = "me@example.com"});
    ASSERT_NE(dynamic_cast<GoogleDriveAdapter*>(drive.get()), nullptr);
    EXPECT_EQ(drive->remoteID(), "gd");
    EXPECT_EQ(drive->displayName(), "Google Drive (me@example.com)");
    EXPECT_NE(dynamic_cast<DropboxAdapter*>(
                  Catalog::adapter(Row{.remoteName = "db", .rcloneType = "dropbox"}).get()),
              nullptr);
    const auto local = Catalog::adapter(
        Row{.remoteName = "localdisk", .rcloneType = "local", .isPlaceholder = true});
    ASSERT_NE(dynamic_cast<LocalDiskAdapter*>(local.get()), nullptr);
    EXPECT_EQ(local->displayName(), "Local disk");
    const auto other = Catalog::adapter(Row{.remoteName = "sf", .rcloneType = "seafile"});
    ASSERT_NE(dynamic_cast<GenericRcloneAdapter*>(other.get()), nullptr);
    EXPECT_EQ(other->rcloneType(), "seafile");
    EXPECT_EQ(other->displayName(), "seafile (sf)");
}

} // namespace
} // namespace brimvale
