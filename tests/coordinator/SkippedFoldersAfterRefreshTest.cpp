#include "core/coordinator/SkippedFoldersAfterRefresh.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

std::vector<std::string> locations(const std::vector<SkippedFolder>& folders) {
    std::vector<std::string> out;
    for (const auto& folder : folders) {
        out.push_back(folder.location);
    }
    return out;
}

TEST(SkippedFoldersAfterRefresh, OnlyTheRefreshedSubtreeIsForgottenAndTheNewOnesArePlaced) {
    const std::vector<SkippedFolder> before{{"/photos", "denied"},
                                            {"/photos/2024/raw", "denied"},
                                            {"/photos-old", "denied"},
                                            {"/music", "denied"}};
    // A cloud refresh of /photos that now reads everything: its unread folders go; a sibling
    // whose name merely begins the same stays.
    EXPECT_EQ(locations(skippedAfterRefresh(before, {}, "/photos", false)),
              (std::vector<std::string>{"/photos-old", "/music"}));
    // Its own unread folders are named below the folder it listed.
    EXPECT_EQ(locations(skippedAfterRefresh(before, {{"/", "gone"}, {"/2024/raw", "denied"}},
                                            "/photos/", false)),
              (std::vector<std::string>{"/photos-old", "/music", "/photos", "/photos/2024/raw"}));

    // A local tree keeps locations without the leading "/"; the scanner reports absolute ones.
    const std::vector<SkippedFolder> local{{"/srv/data/locked", "denied"},
                                           {"/srv/database", "denied"}};
    EXPECT_EQ(
        locations(skippedAfterRefresh(local, {{"/srv/data/other", "denied"}}, "srv/data", true)),
        (std::vector<std::string>{"/srv/database", "/srv/data/other"}));
    // The root of a tree covers everything.
    EXPECT_TRUE(skippedAfterRefresh(before, {}, "/", false).empty());
}

} // namespace
} // namespace brimvale
