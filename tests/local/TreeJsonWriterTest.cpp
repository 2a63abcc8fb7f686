#include "cli/TreeJsonWriter.h"

#include "cli/DisplayText.h"
#include "core/interchange/JsonPullReader.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <sstream>

namespace brimvale::cli {
namespace {

FileNodeRef node(std::string name, std::string path, bool isDirectory, std::int64_t size,
                 std::optional<Date> date = std::nullopt) {
    return FileNode::make({.name = std::move(name),
                           .path = std::move(path),
                           .isDirectory = isDirectory,
                           .size = size,
                           .modifiedDate = date});
}

std::string jsonOf(const FileNode& root) {
    std::ostringstream out;
    TreeJsonWriter(out).write(root);
    return out.str();
}

TEST(TreeJsonWriter, EveryFieldOfEveryNodeInTreeOrder) {
    auto root = node("home", "home", true, 0);
    auto first = node("b.txt", "home/b.txt", false, 70, Date::fromUnixSeconds(1714566896.75));
    auto folder = node("a", "home/a", true, 0, Date::fromUnixSeconds(-1));
    auto cloud = FileNode::make({.name = "doc",
                                 .path = "home/a/doc",
                                 .size = 30,
                                 .providerID = "1AbC",
                                 .mimeType = "application/vnd.google-apps.document"});
    folder->addChild(cloud);
    root->addChild(first);
    root->addChild(folder);

    const std::string text = jsonOf(*root);
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    const auto json = nlohmann::json::parse(text);
    EXPECT_EQ(json["name"], "home");
    EXPECT_EQ(json["path"], "home");
    EXPECT_EQ(json["isDirectory"], true);
    EXPECT_EQ(json["size"], 100);
    EXPECT_TRUE(json["modifiedDate"].is_null());
    EXPECT_TRUE(json["providerID"].is_null());
    EXPECT_TRUE(json["mimeType"].is_null());
    ASSERT_EQ(json["children"].size(), 2u);
    EXPECT_EQ(json["children"][0]["name"], "b.txt");
    EXPECT_EQ(json["children"][0]["modifiedDate"], "2024-05-01T12:34:56Z");
    EXPECT_EQ(json["children"][0]["children"], nlohmann::json::array());
    EXPECT_EQ(json["children"][1]["modifiedDate"], "1969-12-31T23:59:59Z");
    const auto& doc = json["children"][1]["children"][0];
    EXPECT_EQ(doc["providerID"], "1AbC");
    EXPECT_EQ(doc["mimeType"], "application/vnd.google-apps.document");
    EXPECT_EQ(doc["isDirectory"], false);
    const std::vector<std::string> keys = {"name",         "path",       "isDirectory", "size",
                                           "modifiedDate", "providerID", "mimeType",    "children"};
    std::size_t at = 0;
    for (const auto& key : keys) {
        const auto found = text.find("\"" + key + "\":", at);
        ASSERT_NE(found, std::string::npos) << key;
        at = found;
    }
}

TEST(TreeJsonWriter, DatesAcrossCalendarBoundaries) {
    const std::pair<double, const char*> cases[] = {
        {0, "1970-01-01T00:00:00Z"},
        {951782400, "2000-02-29T00:00:00Z"},
        {978307199.999, "2000-12-31T23:59:59Z"},
        {4107542400, "2100-03-01T00:00:00Z"},
        {-62135596800, "0001-01-01T00:00:00Z"},
        {253402300799, "9999-12-31T23:59:59Z"},
    };
    for (const auto& [seconds, expected] : cases) {
        std::string text;
        TreeJsonWriter::appendIso8601(text, seconds);
        EXPECT_EQ(text, expected) << seconds;
    }
}

TEST(TreeJsonWriter, AnyBytesBecomeJsonThatMapsBackToThem) {
    const std::pair<std::string, std::string> cases[] = {
        {"plain", "\"plain\""},
        {"quote\" back\\slash", "\"quote\\\" back\\\\slash\""},
        {"line\nbreak\ttab\x01", "\"line\\nbreak\\ttab\\u0001\""},
        {"caf\xC3\xA9 \xF0\x9F\x93\x81", "\"caf\xC3\xA9 \xF0\x9F\x93\x81\""},
        {"latin1 caf\xE9", "\"latin1 caf\\udce9\""},
        {"\xFF\xFE", "\"\\udcff\\udcfe\""},
        {"overlong \xC0\xAF", "\"overlong \\udcc0\\udcaf\""},
        {"surrogate \xED\xA0\x80", "\"surrogate \\udced\\udca0\\udc80\""},
        {"cut \xE2\x82", "\"cut \\udce2\\udc82\""},
        {"too big \xF4\x90\x80\x80", "\"too big \\udcf4\\udc90\\udc80\\udc80\""},
        {std::string("nul\0x", 5), "\"nul\\u0000x\""},
    };
    for (const auto& [raw, expected] : cases) {
        std::string text;
        TreeJsonWriter::appendJsonString(text, raw);
        EXPECT_EQ(text, expected);
        // The import reader maps the escapes back to the bytes.
        bool given = false;
        JsonPullReader reader([&](char* buffer, std::size_t capacity) -> std::size_t {
            if (given || capacity < text.size()) {
                return 0;
            }
            given = true;
            std::memcpy(buffer, text.data(), text.size());
            return text.size();
        });
        std::string back;
        reader.readString(back);
        EXPECT_EQ(back, raw);
    }
    EXPECT_EQ(displayText("a\nb\xFF"
                          "c\xC3\xA9"),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD"
              "c\xC3\xA9");
    EXPECT_EQ(groupedCount(0), "0");
    EXPECT_EQ(groupedCount(999), "999");
    EXPECT_EQ(groupedCount(1000), "1,000");
    EXPECT_EQ(groupedCount(-1234567), "-1,234,567");
}

TEST(TreeJsonWriter, DeepAndWideTreesStream) {
    // 100,000 levels: no recursion in writing (nor in freeing the tree).
    auto root = node("deep", "deep", true, 0);
    FileNode* parent = root.get();
    for (int level = 0; level < 100'000; ++level) {
        auto child = FileNode::makeChild(nullptr, PathJoin::relativeTail,
                                         {.name = "d", .isDirectory = true});
        parent->addChild(child);
        parent = child.get();
    }
    const std::string text = jsonOf(*root);
    std::size_t opened = 0;
    std::size_t closed = 0;
    for (char c : text) {
        opened += c == '{';
        closed += c == '}';
    }
    EXPECT_EQ(opened, 100'001u);
    EXPECT_EQ(closed, 100'001u);
    EXPECT_TRUE(text.ends_with("\"children\":[]}]}]}\n") || text.ends_with("]}]}]}\n"));
    EXPECT_EQ(text.find("\"children\":[]"), text.rfind("\"children\":[]")); // one leaf

    auto wide = node("wide", "wide", true, 0);
    const SharedTextRef widePath = wide->sharedPath();
    for (int i = 0; i < 20'000; ++i) {
        wide->addChild(FileNode::makeChild(widePath, PathJoin::relativeTail,
                                           {.name = "file" + std::to_string(i), .size = i}));
    }
    const auto parsed = nlohmann::json::parse(jsonOf(*wide));
    ASSERT_EQ(parsed["children"].size(), 20'000u);
    EXPECT_EQ(parsed["children"][19'999]["path"], "wide/file19999");
    EXPECT_EQ(parsed["children"][19'999]["size"], 19'999);
}

} // namespace
} // namespace brimvale::cli
