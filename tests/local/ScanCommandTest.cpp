#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "tests/support/CliRun.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace brimvale::cli {
namespace {

using brimvale::testing::runCli;

using brimvale::testing::TemporaryTree;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

TEST(ScanCommand, WrongUseAndWrongPaths) {
    TemporaryTree tree;
    tree.file("plain.txt", 10);
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"scan"},
             {"scan", tree.root(), tree.root()},
             {"scan", tree.root(), "--depth", "0"},
             {"scan", tree.root(), "--depth"},
             {"scan", tree.root(), "--top=x"},
             {"scan", tree.root(), "--top", "3", "--json"},
             {"scan", tree.root(), "--colour"},
             {"volumes", "extra"},
         }) {
        const auto outcome = runCli(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments.back();
        EXPECT_TRUE(outcome.out.empty());
        EXPECT_NE(outcome.err.find("Usage: brimvale-cli "), std::string::npos) << outcome.err;
    }
    const auto missing = runCli({"scan", tree.location("nowhere")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err,
              "brimvale-cli scan: '" + tree.location("nowhere") + "' does not exist\n");
    const auto file = runCli({"scan", tree.location("plain.txt")});
    EXPECT_EQ(file.status, 1);
    EXPECT_EQ(file.err,
              "brimvale-cli scan: '" + tree.location("plain.txt") + "' is a file, not a folder\n");
    EXPECT_TRUE(missing.out.empty() && file.out.empty());
}

TEST(ScanCommand, ListsTheLargestItemsLevelByLevel) {
    TemporaryTree tree;
    tree.file("big/inner/large.bin", 409'600);
    tree.file("big/small.bin", 102'400);
    tree.file("medium.bin", 300'000);
    tree.file("caf\xE9/x.bin", 50'000);
    tree.file("two\nlines.txt", 20'000);
    tree.file("tiny.txt", 1);

    const auto outcome = runCli({"scan", tree.root(), "--top", "3", "--depth", "2"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(outcome.err.empty()) << outcome.err;
    EXPECT_EQ(outcome.out.find('\x1b'), std::string::npos);
    const auto lines = linesOf(outcome.out);
    ASSERT_EQ(lines.size(), 8u) << outcome.out;
    EXPECT_TRUE(lines[0].starts_with(tree.root() + "  ")) << lines[0];
    EXPECT_NE(lines[0].find("(6 files, 4 folders)"), std::string::npos) << lines[0];
    // Largest first, each with its share of its folder; folders one level further in.
    EXPECT_TRUE(lines[1].starts_with("  ")) << lines[1];
    EXPECT_TRUE(lines[1].ends_with("  big/")) << lines[1];
    EXPECT_NE(lines[1].find("%  \u2588"), std::string::npos) << lines[1];
    EXPECT_TRUE(lines[2].starts_with("    ")) << lines[2];
    EXPECT_TRUE(lines[2].ends_with("  inner/")) << lines[2];
    EXPECT_NE(lines[2].find(" 80.0%  "), std::string::npos) << lines[2];
    EXPECT_TRUE(lines[3].ends_with("  small.bin")) << lines[3];
    EXPECT_TRUE(lines[4].ends_with("  medium.bin")) << lines[4];
    EXPECT_TRUE(lines[5].ends_with("  caf\xEF\xBF\xBD/")) << lines[5];
    EXPECT_TRUE(lines[6].ends_with("  x.bin")) << lines[6];
    EXPECT_NE(lines[6].find("100.0%  "), std::string::npos) << lines[6];
    EXPECT_TRUE(lines[7].starts_with("  ")) << lines[7];
    EXPECT_NE(lines[7].find("\u2026 2 more items, "), std::string::npos) << lines[7];

    // A newline in a name stays on its line.
    const auto all = runCli({"scan", tree.root()});
    ASSERT_EQ(all.status, 0);
    const auto allLines = linesOf(all.out);
    ASSERT_EQ(allLines.size(), 6u) << all.out;
    EXPECT_TRUE(allLines[4].ends_with("  two\xEF\xBF\xBDlines.txt")) << allLines[4];
}

TEST(ScanCommand, JsonIsTheWholeTree) {
    TemporaryTree tree;
    tree.file("a/b/c.bin", 9'000);
    tree.file("a/\xC3\xBF.bin", 5'000); // names that are not UTF-8: NonUtf8NamesEndToEndTest
    tree.file("z.txt", 100);
    const auto outcome = runCli({"scan", "--json", tree.root()});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto json = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(json["path"], tree.root().substr(1));
    EXPECT_EQ(json["size"], tree.allocatedBytesOfEntriesByDu());
    ASSERT_EQ(json["children"].size(), 2u);
    EXPECT_EQ(json["children"][0]["name"], "a");
    EXPECT_EQ(json["children"][0]["isDirectory"], true);
    const auto& a = json["children"][0]["children"];
    ASSERT_EQ(a.size(), 2u);
    EXPECT_EQ(a[0]["name"], "b");
    EXPECT_EQ(a[0]["children"][0]["name"], "c.bin");
    EXPECT_EQ(a[1]["name"], "\xC3\xBF.bin");
    EXPECT_TRUE(a[1]["modifiedDate"].is_string());
    EXPECT_TRUE(a[1]["mimeType"].is_null());
    EXPECT_TRUE(a[1]["providerID"].is_null());
}

TEST(ScanCommand, VolumesListTheStartupDiskFirst) {
    const auto text = runCli({"volumes"});
    ASSERT_EQ(text.status, 0);
    EXPECT_TRUE(text.out.starts_with("Entire startup disk  (/)\n    ")) << text.out;
    EXPECT_NE(text.out.find(" total \u00B7 "), std::string::npos);
    const auto json = runCli({"volumes", "--json"});
    ASSERT_EQ(json.status, 0);
    const auto list = nlohmann::json::parse(json.out);
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(list[0]["id"], "scan:/");
    EXPECT_EQ(list[0]["title"], "Entire startup disk");
    EXPECT_TRUE(list[0]["totalBytes"].is_number_integer());
}

} // namespace
} // namespace brimvale::cli
