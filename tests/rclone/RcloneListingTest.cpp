#include "core/rclone/BrimvaleError.h"
#include "core/rclone/PlainInternetDate.h"
#include "core/rclone/RcloneListingMerge.h"
#include "core/rclone/RcloneListingParser.h"
#include "tests/support/TreeBuilders.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

using testing::childNames;

std::string parseFailure(std::string_view json, std::string_view context = "gd:Photos") {
    try {
        parseJSON(json, context);
    } catch (const BrimvaleError& error) {
        const auto* parse = error.as<BrimvaleError::ParseError>();
        EXPECT_NE(parse, nullptr);
        return parse ? parse->detail : "";
    }
    ADD_FAILURE() << "decoded: " << json;
    return {};
}

TEST(RcloneListingParser, DecodesEntriesByNameAndIgnoresOtherKeys) {
    const auto entries = parseJSON(
        R"([{"Path":"a/b.txt","Name":"b.txt","Size":12,"MimeType":"text/plain",
             "ModTime":"2024-05-01T10:00:00Z","IsDir":false,"ID":"X1","Tier":"hot"},
            {"IsDir":true,"Size":-1,"Name":"d","Path":"a/d","ModTime":null}])",
        "r:");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0], (RcloneEntry{.path = "a/b.txt",
                                       .name = "b.txt",
                                       .rawSize = 12,
                                       .modTime = "2024-05-01T10:00:00Z",
                                       .isDir = false,
                                       .id = "X1",
                                       .mimeType = "text/plain"}));
    EXPECT_EQ(entries[1], (RcloneEntry{.path = "a/d", .name = "d", .rawSize = -1, .isDir = true}));
    EXPECT_TRUE(parseJSON("[]", "r:").empty());
    // Deep nesting under a key that is not read costs no stack.
    const std::string deep = R"([{"Path":"p","Name":"n","Size":1,"IsDir":false,"X":)" +
                             std::string(200000, '[') + std::string(200000, ']') + "}]";
    EXPECT_EQ(parseJSON(deep, "r:").size(), 1u);
    // Whole numbers written with an exponent are sizes too; the largest 64-bit size fits.
    EXPECT_EQ(parseJSON(R"([{"Path":"p","Name":"n","Size":1e3,"IsDir":false}])", "r:")[0].rawSize,
              1000);
    EXPECT_EQ(
        parseJSON(R"([{"Path":"p","Name":"n","Size":9223372036854775807,"IsDir":false}])", "r:")[0]
            .rawSize,
        INT64_MAX);
}

TEST(RcloneListingParser, FailuresSayWhatAndWhere) {
    // Truncated output: cut in the middle of an object.
    const std::string truncated =
        R"([{"Path":"a","Name":"a","Size":1,"IsDir":false},{"Path":"b","Na)";
    const std::string message = parseFailure(truncated);
    EXPECT_TRUE(message.starts_with("Could not parse folder listing for gd:Photos: Invalid or "
                                    "incomplete JSON (often truncated output): "))
        << message;
    EXPECT_TRUE(message.ends_with(" (JSON length: " + std::to_string(truncated.size()) +
                                  " bytes; starts: " + truncated + "; ends: " + truncated + ")"))
        << message;

    const struct {
        std::string json;
        std::string description;
    } cases[] = {
        {R"([{"Name":"a","Size":1,"IsDir":false}])",
         R"(Missing key "Path": No value associated with key "Path". at path Index 0)"},
        {R"([{"Path":"a","Name":"a","Size":1,"IsDir":false},{"Path":"b","Name":"b","Size":2}])",
         R"(Missing key "IsDir": No value associated with key "IsDir". at path Index 1)"},
        {R"([{"Path":"a","Name":null,"Size":1,"IsDir":false}])",
         "Missing value (expected String): Expected String value but found null instead. at "
         "path Index 0.Name"},
        {R"([{"Path":"a","Name":"a","Size":"12","IsDir":false}])",
         "Type mismatch (expected Int64): Expected to decode Int64 but found a string instead. "
         "at path Index 0.Size"},
        {R"([{"Path":"a","Name":"a","Size":1.5,"IsDir":false}])",
         "Type mismatch (expected Int64): Expected to decode Int64 but found the number 1.5 "
         "instead. at path Index 0.Size"},
        {R"([{"Path":"a","Name":"a","Size":9223372036854775808,"IsDir":false}])",
         "Type mismatch (expected Int64): Expected to decode Int64 but found the number "
         "9223372036854775808 instead. at path Index 0.Size"},
        {R"([{"Path":"a","Name":"a","Size":1,"IsDir":"false"}])",
         "Type mismatch (expected Bool): Expected to decode Bool but found a string instead. at "
         "path Index 0.IsDir"},
        {R"([{"Path":"a","Name":"a","Size":1,"IsDir":false,"ID":7}])",
         "Type mismatch (expected String): Expected to decode String but found the number 7 "
         "instead. at path Index 0.ID"},
        // Keys are decoded in order, so the first failure is Path's although Size is bad too.
        {R"([{"Size":"x","IsDir":1}])",
         R"(Missing key "Path": No value associated with key "Path". at path Index 0)"},
        {R"({"Path":"a"})",
         "Type mismatch (expected Array): Expected to decode Array but found an object instead. "
         "at path "},
        {R"([1])",
         "Type mismatch (expected Object): Expected to decode Object but found the number 1 "
         "instead. at path Index 0"},
    };
    for (const auto& example : cases) {
        const std::string failure = parseFailure(example.json, "r:x");
        EXPECT_EQ(failure, "Could not parse folder listing for r:x: " + example.description +
                               " (JSON length: " + std::to_string(example.json.size()) +
                               " bytes; starts: " + example.json + "; ends: " + example.json + ")");
    }

    // Empty output, stray bytes after the array, and ill-formed UTF-8 are not JSON either;
    // the excerpts show at most 200 and 120 bytes, decoded leniently.
    EXPECT_NE(parseFailure("").find("Invalid or incomplete JSON"), std::string::npos);
    EXPECT_NE(parseFailure("[] trailing").find("Invalid or incomplete JSON"), std::string::npos);
    const std::string badUTF8 = R"([{"Path":"\xFF"}])";
    EXPECT_NE(parseFailure(badUTF8).find("Invalid or incomplete JSON"), std::string::npos);
    const std::string big = "[" + std::string(500, ' ') + "\xE2\x82";
    const std::string excerpt = parseFailure(big);
    EXPECT_NE(excerpt.find("; starts: [" + std::string(199, ' ') +
                           "; ends: " + std::string(118, ' ') + "\xEF\xBF\xBD)"),
              std::string::npos)
        << excerpt;
}

TEST(PlainInternetDate, AcceptsOnlyThePlainInternetForm) {
    EXPECT_EQ(parsePlainInternetDate("2001-01-01T00:00:00Z"), Date{0});
    EXPECT_EQ(parsePlainInternetDate("2024-05-01T10:00:00Z")->unixSeconds(), 1714557600);
    EXPECT_EQ(parsePlainInternetDate("2024-05-01T12:30:00+02:30")->unixSeconds(), 1714557600);
    EXPECT_EQ(parsePlainInternetDate("2024-05-01T05:00:00-05:00")->unixSeconds(), 1714557600);
    EXPECT_EQ(parsePlainInternetDate("1970-01-01T00:00:00Z")->unixSeconds(), 0);
    EXPECT_EQ(parsePlainInternetDate("2024-02-29T23:59:59Z")->unixSeconds(), 1709251199);
    for (const char* rejected :
         {"2024-05-01T10:00:00.123Z", "2024-05-01T10:00:00", "2024-05-01 10:00:00Z",
          "2024-05-01t10:00:00z", "2023-02-29T00:00:00Z", "2024-13-01T00:00:00Z",
          "2024-04-31T00:00:00Z", "2024-05-01T24:00:00Z", "2024-05-01T10:60:00Z",
          "2024-05-01T10:00:60Z", "2024-05-01T10:00:00+0200", "2024-05-01T10:00:00+02:00x",
          "2024-5-01T10:00:00Z", "", "2024-05-01T10:00:00+24:00", "+2024-05-01T10:00:00Z"}) {
        EXPECT_FALSE(parsePlainInternetDate(rejected)) << rejected;
    }
}

RcloneEntry fileEntry(std::string name, std::int64_t size) {
    return {.path = name, .name = name, .rawSize = size, .isDir = false};
}

RcloneEntry folderEntry(std::string name) {
    return {.path = name, .name = name, .rawSize = -1, .isDir = true};
}

TEST(RcloneListingMerge, MakesNodesFromEntries) {
    auto root = FileNode::make({.name = "r", .path = "/", .isDirectory = true});
    RcloneEntry document = fileEntry("doc", 7);
    document.id = "ID7";
    document.mimeType = "application/pdf";
    document.modTime = "2024-05-01T10:00:00Z";
    RcloneEntry fractional = fileEntry("frac", 1);
    fractional.modTime = "2024-05-01T10:00:00.123Z";
    const auto subdirs =
        mergeListingEntries({folderEntry("sub"), document, fractional}, *root, {"r:", "r", 5});
    ASSERT_EQ(subdirs.size(), 1u);
    EXPECT_EQ(subdirs[0]->name(), "sub");
    EXPECT_EQ(childNames(*root), (std::vector<std::string>{"sub", "doc", "frac"}));
    const FileNode& sub = *root->children()[0];
    EXPECT_EQ(sub.size(), 0); // -1 from rclone counts as nothing
    EXPECT_EQ(sub.path(), "/sub");
    EXPECT_EQ(sub.parent(), root.get());
    EXPECT_EQ(sub.scanGeneration(), 5);
    const FileNode& doc = *root->children()[1];
    EXPECT_EQ(doc.providerID(), "ID7");
    EXPECT_EQ(doc.mimeType(), "application/pdf");
    EXPECT_EQ(doc.modifiedDate()->unixSeconds(), 1714557600);
    EXPECT_FALSE(root->children()[2]->modifiedDate()); // fractional seconds: no date

    // Below a folder the path grows from the folder's.
    mergeListingEntries({fileEntry("inner", 3)}, *root->children()[0], {"r:sub", "r", 5});
    EXPECT_EQ(root->children()[0]->children()[0]->path(), "/sub/inner");
    refreshAggregatedSize(*root->children()[0]);
    refreshAggregatedSize(*root);
    EXPECT_EQ(root->size(), 3 + 7 + 1);
    EXPECT_EQ(childNames(*root), (std::vector<std::string>{"doc", "sub", "frac"}));
}

TEST(RcloneListingMerge, RescanReplacesNodesInPlaceAndKeepsSubtrees) {
    auto root = FileNode::make({.name = "r", .path = "/", .isDirectory = true});
    auto photos = mergeListingEntries(
        {folderEntry("photos"), fileEntry("report", 10), fileEntry("notes", 4), folderEntry("old")},
        *root, {"r:", "r", 1})[0];
    mergeListingEntries({fileEntry("a.jpg", 100)}, *photos, {"r:photos", "r", 1});
    std::vector<NodeID> firstIDs;
    for (const auto& child : root->children()) {
        firstIDs.push_back(child->id());
    }
    const FileNode* oldPhotos = photos.get();
    photos.reset();

    root->clearScanMarks();
    // "report" became a folder, "old" disappeared, "new" is new; order otherwise kept.
    const auto subdirs = mergeListingEntries(
        {fileEntry("notes", 5), folderEntry("report"), folderEntry("photos"), fileEntry("new", 1)},
        *root, {"r:", "r", 2});
    EXPECT_EQ(childNames(*root),
              (std::vector<std::string>{"photos", "report", "notes", "old", "new"}));
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NE(root->children()[i]->id(), firstIDs[i]) << i;
    }
    EXPECT_EQ(root->children()[3]->id(), firstIDs[3]); // not listed, not touched
    const FileNode& newPhotos = *root->children()[0];
    EXPECT_NE(&newPhotos, oldPhotos);
    ASSERT_EQ(newPhotos.children().size(), 1u); // the subtree stays until its own listing
    EXPECT_EQ(newPhotos.children()[0]->parent(), &newPhotos);
    EXPECT_EQ(newPhotos.children()[0]->name(), "a.jpg");
    const FileNode& report = *root->children()[1];
    EXPECT_TRUE(report.isDirectory());
    EXPECT_TRUE(report.children().empty());
    EXPECT_EQ(root->children()[2]->size(), 5);
    EXPECT_EQ(root->children()[3]->scanGeneration(), 0); // stale until pruned
    ASSERT_EQ(subdirs.size(), 2u);
    EXPECT_EQ(subdirs[0]->name(), "report");

    // Pruning and roll-up as a scan's end does them: "old" and the unseen "a.jpg" go.
    root->pruneStaleNodes(2);
    root->propagateSizes();
    EXPECT_EQ(childNames(*root), (std::vector<std::string>{"photos", "report", "notes", "new"}));
    EXPECT_EQ(root->size(), 6);

    // An empty listing merges nothing.
    auto empty = FileNode::make({.name = "e", .path = "/e", .isDirectory = true});
    EXPECT_TRUE(mergeListingEntries({}, *empty, {"r:e", "r", 1}).empty());
    refreshAggregatedSize(*empty);
    EXPECT_EQ(empty->size(), 0);
}

TEST(RcloneListingMerge, DuplicateNamesInOneListingCollapseOntoTheFirst) {
    // Some providers (Google Drive) allow two items of one name in a folder; the search for
    // an existing child finds the first, so the later entry replaces it.
    auto root = FileNode::make({.name = "r", .path = "/", .isDirectory = true});
    mergeListingEntries({fileEntry("same", 1), fileEntry("other", 2), fileEntry("same", 3)}, *root,
                        {"r:", "r", 1});
    EXPECT_EQ(childNames(*root), (std::vector<std::string>{"same", "other"}));
    EXPECT_EQ(root->children()[0]->size(), 3);
}

} // namespace
} // namespace brimvale
