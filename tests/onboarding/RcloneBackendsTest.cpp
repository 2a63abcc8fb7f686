#include "core/onboarding/RcloneBackends.h"

#include "core/onboarding/CloudServiceCatalog.h"
#include "tests/onboarding/OnboardingTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace brimvale {
namespace {

const RcloneBackend& backendOfType(const RcloneBackendList& backends, std::string_view type) {
    const auto found = std::ranges::find(backends, type, &RcloneBackend::type);
    if (found == backends.end()) {
        throw std::runtime_error("no backend " + std::string(type));
    }
    return *found;
}

std::vector<std::string> typesMatching(const std::vector<CloudServiceDefinition>& rows,
                                       std::string_view search) {
    std::vector<std::string> types;
    for (const auto& row : rows) {
        if (CloudServiceCatalog::matchesSearch(row, search)) {
            types.push_back(row.rcloneType + (row.s3Variant ? "*" : ""));
        }
    }
    return types;
}

// The installed rclone's own description of its backends, read once and kept.
TEST(RcloneBackends, TheInstalledRclonesBackendsAreReadOnceWithEveryOptionsDetails) {
    const testing::RcloneSandbox sandbox;
    const auto backends = RcloneBackends::load(sandbox.realRunner());
    ASSERT_NE(backends, nullptr);
    EXPECT_EQ(backends->size(), 46u) << "rclone 1.60 has 46 backends";
    EXPECT_EQ(RcloneBackends::load(sandbox.realRunner()), backends) << "kept, not asked again";

    const RcloneBackend& webdav = backendOfType(*backends, "webdav");
    EXPECT_EQ(webdav.description, "WebDAV");
    ASSERT_NE(webdav.option("url"), nullptr);
    EXPECT_TRUE(webdav.option("url")->required);
    EXPECT_TRUE(webdav.option("pass")->isPassword);
    EXPECT_FALSE(webdav.option("vendor")->examples.empty());
    EXPECT_TRUE(webdav.option("headers")->advanced);
    // The long names' short types are what a remote's configuration holds.
    EXPECT_NO_THROW(backendOfType(*backends, "gcs"));
    const RcloneBackend& s3 = backendOfType(*backends, "s3");
    EXPECT_EQ(s3.option("region")->type, "string");
    EXPECT_EQ(backendOfType(*backends, "b2").option("hard_delete")->defaultText, "false");
    EXPECT_TRUE(std::ranges::any_of(s3.options, [](const auto& option) {
        return option.provider == "AWS" && option.name == "region";
    }));
}

TEST(RcloneBackends, WhatIsNotABackendListIsRefused) {
    for (const std::string_view text :
         {"", "{}", "[1]", "[{}]", R"([{"Name": "x", "Options": [{"Help": "no name"}]}])",
          R"([{"Name": "x", "Options": {"a": 1}}])", R"([{"Name": 5}])", "[{\"Name\": \"\xff\"}]",
          "[{\"Name\": \"x\", \"Options\": [{\"Name\": \"y\", \"Examples\": [7]}]}]"}) {
        EXPECT_THROW(RcloneBackends::parse(text), BrimvaleError) << text;
    }
    EXPECT_THROW(RcloneBackends::parse(std::string(100, '[') + std::string(100, ']')),
                 BrimvaleError);
    // Null and missing fields are empty; hidden backends and options are marked.
    const auto parsed = RcloneBackends::parse(R"([
        {"Name": "long name", "Prefix": "ln", "Description": null, "Options": null},
        {"Name": "gone", "Hide": true},
        {"Name": "o", "Options": [{"Name": "k", "Hide": 3, "Examples": null}]}])");
    ASSERT_EQ(parsed.size(), 2u);
    EXPECT_EQ(parsed[0].type, "ln");
    EXPECT_EQ(parsed[1].type, "o");
    EXPECT_TRUE(parsed[1].options.at(0).hiddenFromConfiguration);
}

TEST(RcloneBackends, ProviderFiltersFollowRclonesRule) {
    struct Case {
        std::string_view filter;
        std::string_view chosen;
        bool applies;
    };
    for (const auto& [filter, chosen, applies] : std::vector<Case>{
             {"", "AWS", true},
             {"", "", true},
             {"AWS", "AWS", true},
             {"AWS", "Minio", false},
             {"AWS,Minio", "Minio", true},
             {"AWS, Minio", "Minio", true},
             {"!AWS,Minio", "Minio", false},
             {"!AWS,Minio", "Ceph", true},
             {"!AWS", "", true},
             {"AWS", "", false},
             {"AWSX", "AWS", false},
         }) {
        EXPECT_EQ(RcloneBackends::appliesToProvider(filter, chosen), applies)
            << filter << " / " << chosen;
    }
}

// Our own rows first, then one for each other backend; search reads titles, descriptions and
// types.
TEST(RcloneBackends, TheCatalogListsEveryBackendAndSearchFindsThemByNameAndDescription) {
    const testing::RcloneSandbox sandbox;
    const auto rows = CloudServiceCatalog::services(*RcloneBackends::load(sandbox.realRunner()));
    const auto& own = CloudServiceCatalog::majorServices();
    ASSERT_GT(rows.size(), own.size());
    for (std::size_t index = 0; index < own.size(); ++index) {
        EXPECT_EQ(rows[index].displayName, own[index].displayName);
    }
    // 46 backends (Debian's rclone 1.60 has no MEGA): 9 have a row of ours, "s3" two, and it
    // still gets a row for its other providers.
    EXPECT_EQ(rows.size(), own.size() + 46 - 9);
    EXPECT_EQ(std::ranges::count(rows, "drive", &CloudServiceDefinition::rcloneType), 1);
    EXPECT_EQ(typesMatching(rows, "webdav"), std::vector<std::string>{"webdav"});
    EXPECT_EQ(typesMatching(rows, " Backblaze "), std::vector<std::string>{"b2"});
    EXPECT_EQ(typesMatching(rows, "cifs"), std::vector<std::string>{"smb"});
    EXPECT_EQ(typesMatching(rows, "rackspace"), std::vector<std::string>{"swift"});
    // Our two S3 rows carry rclone's description too.
    EXPECT_EQ(typesMatching(rows, "S3 compliant"), (std::vector<std::string>{"s3*", "s3*", "s3"}));
    const auto swift = std::ranges::find(rows, "swift", &CloudServiceDefinition::rcloneType);
    EXPECT_EQ(swift->displayName, "OpenStack Swift");
    EXPECT_EQ(swift->defaultRemoteName, "swift");

    struct Case {
        std::string_view type;
        std::optional<S3CatalogVariant> variant;
        bool generated;
    };
    for (const auto& [type, variant, generated] : std::vector<Case>{
             {"webdav", {}, true},
             {"mega", {}, true}, // ours, but rclone has to be told the login
             {"pcloud", {}, true},
             {"s3", {}, true},
             {"s3", S3CatalogVariant::cloudflareR2, false},
             {"sftp", {}, false},
             {"dropbox", {}, false},
             {"local", {}, false},
         }) {
        EXPECT_EQ(CloudServiceCatalog::usesGeneratedForm(
                      {.rcloneType = std::string(type), .s3Variant = variant}),
                  generated)
            << type;
    }
}

} // namespace
} // namespace brimvale
