#include "core/onboarding/CloudServiceCatalog.h"

#include "core/local/LocalDiskAdapter.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"

#include <gtest/gtest.h>

#include <unordered_set>

namespace brimvale {
namespace {

namespace Catalog = CloudServiceCatalog;
using Kind = NativeCredentialOnboardingKind;

TEST(CloudServiceCatalog, RowsTitlesAndNativeForms) {
    std::string table;
    for (const auto& row : Catalog::majorServices()) {
        table += row.rcloneType + "|" + row.displayName + "|" + row.defaultRemoteName +
                 (row.s3Variant ? "|" + std::string(rawValue(*row.s3Variant)) : "") + "\n";
    }
    EXPECT_EQ(table, "drive|Google Drive|gdrive\ndropbox|Dropbox|dropbox\nonedrive|OneDrive|"
                     "onedrive\nlocal|Local disk|localdisk\ns3|Amazon S3|s3|standardAws\ns3|"
                     "Cloudflare R2|r2|cloudflareR2\ngcs|Google Cloud Storage|gcs\nazureblob|Azure "
                     "Blob Storage|azureblob\nbox|Box|box\nmega|MEGA|mega\nsftp|SFTP|sftp\nftp|FTP|"
                     "ftp\n");
    const auto& rows = Catalog::majorServices();
    EXPECT_EQ(std::unordered_set<CloudServiceDefinition>(rows.begin(), rows.end()).size(), 12u);
    EXPECT_EQ(s3CatalogVariantFromRawValue("cloudflareR2"), S3CatalogVariant::cloudflareR2);
    EXPECT_EQ(s3CatalogVariantFromRawValue("CloudflareR2"), std::nullopt);
    // Lookups by type land on the first row; an unknown type is shown as itself.
    EXPECT_EQ(Catalog::catalogDisplayTitle("s3"), "Amazon S3");
    EXPECT_EQ(Catalog::catalogDisplayTitle("r2"), "r2");

    EXPECT_EQ(Catalog::nativeOnboardingKind("s3"), Kind::s3(S3CatalogVariant::standardAws));
    EXPECT_EQ(Catalog::nativeOnboardingKind("azureblob"), Kind::azureBlob());
    EXPECT_EQ(Catalog::nativeOnboardingKind(" s3"), std::nullopt);
    EXPECT_EQ(Catalog::nativeOnboardingKind("drive"), std::nullopt);
    EXPECT_EQ(Catalog::nativeOnboardingKind(rows[5]), Kind::s3(S3CatalogVariant::cloudflareR2));
    EXPECT_EQ(Catalog::nativeOnboardingKind(CloudServiceDefinition{"s3", "S3", "s3", {}}),
              std::nullopt);
    const RcloneConfigDump dump{{"r2", {{"provider", " Cloudflare\n"}}},
                                {"lower", {{"provider", "cloudflare"}}}};
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("r2", "s3", dump),
              Kind::s3(S3CatalogVariant::cloudflareR2));
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("lower", "s3", dump),
              Kind::s3(S3CatalogVariant::standardAws));
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("missing", "s3", dump),
              Kind::s3(S3CatalogVariant::standardAws));
    EXPECT_EQ(Catalog::nativeOnboardingKindForRemote("r2", "sftp", dump), Kind::sftp());
    for (const char* type : {"drive", "s3", "gcs", "no such type"}) {
        EXPECT_FALSE(Catalog::usesCredentialWebConfigurator(type)) << type;
    }
}

TEST(CloudServiceCatalog, ProposedNamesLabelsAndAdapters) {
    const auto& rows = Catalog::majorServices();
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[0], {"gdrive", "gdrive_2"}), "gdrive_3");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[0], {"gdrive_2", "GDRIVE"}), "gdrive");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteName(rows[0], {"gdrive", "gdrive_1"}), "gdrive_2");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForRcloneType("s3", {"s3"}), "s3_2");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForRcloneType("my box", {"my_box"}), "my_box_2");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForStem("  ", {"remote"}), "remote");
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForStem(" box\t", {"box"}), "box_2");
    RemoteNameSet taken{"n"};
    for (int number = 2; number <= 500; ++number) {
        taken.insert(number == 317 ? "x" : "n_" + std::to_string(number));
    }
    EXPECT_EQ(Catalog::suggestedUnusedRemoteNameForStem("n", taken), "n_317");

    using Row = CatalogAccountRow;
    EXPECT_EQ(
        Catalog::sidebarLabel({.remoteName = "gd", .rcloneType = "drive", .accountLabel = "a@b"}),
        "Google Drive (a@b)");
    // A type outside the catalog shows its raw type, whatever title was given.
    EXPECT_EQ(Catalog::sidebarLabel(
                  {.remoteName = "sf", .rcloneType = "seafile", .catalogDisplayName = "Seafile"}),
              "seafile (sf)");
    for (const auto& [name, label] : std::vector<std::pair<std::string, std::string>>{
             {"r2", "Cloudflare R2"}, {"s3", "Amazon S3"}, {"bucket", "Amazon S3"}}) {
        EXPECT_EQ(
            Catalog::sidebarLabel({.remoteName = name, .rcloneType = "s3", .isPlaceholder = true}),
            label);
    }
    const auto drive = Catalog::adapter(Row{.remoteName = "gd", .rcloneType = "drive"});
    ASSERT_NE(dynamic_cast<GoogleDriveAdapter*>(drive.get()), nullptr);
    EXPECT_EQ(drive->displayName(), "Google Drive (gd)");
    const auto local = Catalog::adapter(
        Row{.remoteName = "localdisk", .rcloneType = "local", .isPlaceholder = true});
    ASSERT_NE(dynamic_cast<LocalDiskAdapter*>(local.get()), nullptr);
    EXPECT_EQ(local->displayName(), "Local disk");
    const auto other = Catalog::adapter(Row{.remoteName = "sf", .rcloneType = "seafile"});
    ASSERT_NE(dynamic_cast<GenericRcloneAdapter*>(other.get()), nullptr);
    EXPECT_EQ(other->rcloneType(), "seafile");
}

} // namespace
} // namespace brimvale
