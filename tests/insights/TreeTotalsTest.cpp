#include "core/insights/LargestFiles.h"
#include "core/insights/SpaceByType.h"
#include "tests/insights/RandomTree.h"
#include "tests/support/TreeBuilders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
#include <optional>

namespace brimvale {
namespace {

TEST(FileCategory, ExtensionsAndMimeTypes) {
    struct Case {
        const char* name;
        std::optional<std::string_view> mimeType;
        std::optional<std::string_view> extension;
        FileCategory category;
    };
    const Case cases[] = {
        {"movie.MKV", std::nullopt, "mkv", FileCategory::video},
        {"backup.tar.gz", std::nullopt, "gz", FileCategory::archive},
        {".bashrc", std::nullopt, std::nullopt, FileCategory::other},
        {"notes.", std::nullopt, std::nullopt, FileCategory::other},
        {"a.b c", std::nullopt, std::nullopt, FileCategory::other},
        {"x.abcdefghijklmnop", std::nullopt, "abcdefghijklmnop", FileCategory::other},
        {"x.abcdefghijklmnopq", std::nullopt, std::nullopt, FileCategory::other},
        {"caf\xc3\xa9.jp\xc3\xa9", std::nullopt, std::nullopt, FileCategory::other},
        {"main.cpp", std::nullopt, "cpp", FileCategory::code},
        {"Z", std::nullopt, std::nullopt, FileCategory::other},
        // The MIME type says more than the name; a vague one leaves it to the name.
        {"clip", "VIDEO/mp4", std::nullopt, FileCategory::video},
        {"Budget", "application/vnd.google-apps.spreadsheet", std::nullopt, FileCategory::document},
        {"song.mp3", "application/octet-stream", "mp3", FileCategory::audio},
        {"photo.bin", "image/jpeg", "bin", FileCategory::image},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::array<char, 16> buffer;
        EXPECT_EQ(fileExtension(c.name, buffer), c.extension);
        EXPECT_EQ(fileCategoryOf(c.name, c.mimeType), c.category);
    }
}

TEST(LargestFiles, MatchesSortingEveryFileOnRandomTrees) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 40; ++round) {
        const FileNodeRef root = testing::randomTree(random);
        // The whole tree, and the first folder in it (a selected folder).
        std::vector<const FileNode*> tops{root.get()};
        for (const FileNode* node : testing::preorder(*root)) {
            if (node != root.get() && node->isDirectory()) {
                tops.push_back(node);
                break;
            }
        }
        for (const FileNode* top : tops) {
            std::vector<const FileNode*> expected;
            for (const FileNode* node : testing::preorder(*top)) {
                if (!node->isDirectory() && node->size() > 0) {
                    expected.push_back(node);
                }
            }
            std::stable_sort(expected.begin(), expected.end(),
                             [](auto* a, auto* b) { return a->size() > b->size(); });
            for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{5},
                                            expected.size(), std::size_t{100'000}}) {
                const auto largest = largestFiles(*top, count);
                ASSERT_EQ(largest.size(), std::min(count, expected.size()));
                for (std::size_t i = 0; i < largest.size(); ++i) {
                    EXPECT_EQ(largest[i].get(), expected[i]) << "round " << round << " #" << i;
                }
            }
        }
    }
    // A file asked for itself is its own largest file, unless it is empty.
    const FileNodeRef single = FileNode::make({.name = "f", .path = "/f", .size = 3});
    EXPECT_EQ(largestFiles(*single, 3).size(), 1u);
    single->setSize(0);
    EXPECT_TRUE(largestFiles(*single, 3).empty());
}

TEST(SpaceByType, MatchesCountingEveryFileOnRandomTrees) {
    std::mt19937_64 random(11);
    for (int round = 0; round < 40; ++round) {
        const FileNodeRef root = testing::randomTree(random);
        SpaceByType expected;
        std::map<std::string, TypeTotal> byExtension;
        for (const FileNode* node : testing::preorder(*root)) {
            if (node->isDirectory()) {
                continue;
            }
            const auto add = [node](TypeTotal& total) {
                total.bytes += node->size();
                ++total.files;
            };
            add(expected.all);
            add(expected.byCategory[static_cast<std::size_t>(
                fileCategoryOf(node->name(), node->mimeType()))]);
            std::array<char, 16> buffer;
            if (const auto extension = fileExtension(node->name(), buffer)) {
                add(byExtension[std::string(*extension)]);
            } else {
                add(expected.noExtension);
            }
        }
        const SpaceByType totals = spaceByType(*root, 3);
        EXPECT_EQ(totals.all.bytes, expected.all.bytes);
        EXPECT_EQ(totals.all.files, expected.all.files);
        for (std::size_t i = 0; i < kFileCategoryCount; ++i) {
            EXPECT_EQ(totals.byCategory[i].bytes, expected.byCategory[i].bytes);
            EXPECT_EQ(totals.byCategory[i].files, expected.byCategory[i].files);
        }
        EXPECT_EQ(totals.noExtension.files, expected.noExtension.files);
        // The three extensions with the most bytes (ties: more files, then the name).
        std::vector<std::pair<std::string, TypeTotal>> ranked(byExtension.begin(),
                                                              byExtension.end());
        std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) {
            return a.second.bytes != b.second.bytes ? a.second.bytes > b.second.bytes
                                                    : a.second.files > b.second.files;
        });
        ASSERT_EQ(totals.topExtensions.size(), std::min<std::size_t>(3, ranked.size()));
        TypeTotal rest;
        for (std::size_t i = 0; i < ranked.size(); ++i) {
            if (i < 3) {
                EXPECT_EQ(totals.topExtensions[i].extension, ranked[i].first);
                EXPECT_EQ(totals.topExtensions[i].total.bytes, ranked[i].second.bytes);
                EXPECT_EQ(totals.topExtensions[i].total.files, ranked[i].second.files);
            } else {
                rest.bytes += ranked[i].second.bytes;
                rest.files += ranked[i].second.files;
            }
        }
        EXPECT_EQ(totals.otherExtensions.bytes, rest.bytes);
        EXPECT_EQ(totals.otherExtensions.files, rest.files);
    }
    // Sums past the largest size stay there.
    const FileNodeRef huge =
        testing::folder("d", {FileNode::make({.name = "a.iso",
                                              .path = "/d/a.iso",
                                              .size = std::numeric_limits<std::int64_t>::max()}),
                              FileNode::make({.name = "b.iso",
                                              .path = "/d/b.iso",
                                              .size = std::numeric_limits<std::int64_t>::max()})});
    const SpaceByType totals = spaceByType(*huge);
    EXPECT_EQ(totals.all.bytes, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(totals.byCategory[static_cast<std::size_t>(FileCategory::archive)].files, 2);
    ASSERT_EQ(totals.topExtensions.size(), 1u);
    EXPECT_EQ(totals.topExtensions[0].extension, "iso");
}

} // namespace
} // namespace brimvale
