// brimvale-cli top, types and find as a person runs them, on saved scans of a real folder and
// of an alias remote made by the real program.
#include "core/model/SizeFormatter.h"
#include "tests/coordinator/CliSession.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sys/stat.h>

namespace brimvale::testing {
namespace {

using Session = CliSession;

std::int64_t allocated(const TemporaryTree& tree, const std::string& relative) {
    struct stat info {};
    EXPECT_EQ(::stat(tree.location(relative).c_str(), &info), 0) << relative;
    return static_cast<std::int64_t>(info.st_blocks) * 512;
}

TEST(OverviewCommandsEndToEnd, TopTypesAndFindReadAFoldersSavedScan) {
    Session session;
    TemporaryTree tree;
    tree.file("Videos/trip.MOV", 3'000'000);
    tree.file("Videos/old/clip.mp4", 2'000'000);
    tree.file("backup.tar.gz", 1'000'000);
    tree.file("src/main.cpp", 20'000);
    tree.file("src/Report.pdf", 50'000);
    tree.file("README", 9'000);
    tree.file("empty.txt", 0);
    const std::string folder = tree.root();
    EXPECT_NE(session.run({"top", folder}, 1).standardError.find("no saved scan of"),
              std::string::npos);
    session.run({"scan", folder}, 0);

    const auto top = session.json({"top", folder, "-n", "3"});
    EXPECT_EQ(top["target"], folder);
    ASSERT_EQ(top["files"].size(), 3U);
    const char* largest[] = {"Videos/trip.MOV", "Videos/old/clip.mp4", "backup.tar.gz"};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(top["files"][i]["path"], largest[i]);
        EXPECT_EQ(top["files"][i]["size"], allocated(tree, largest[i]));
    }
    const auto topText = session.run({"top", folder, "--count=1"}, 0).standardOutput;
    EXPECT_NE(topText.find(formatBytes(allocated(tree, "Videos/trip.MOV")) + "  Videos/trip.MOV"),
              std::string::npos)
        << topText;
    EXPECT_EQ(topText.find("clip.mp4"), std::string::npos);

    const auto types = session.json({"types", folder});
    EXPECT_EQ(types["files"], 7);
    std::map<std::string, std::int64_t> kinds;
    for (const auto& kind : types["kinds"]) {
        kinds[kind["kind"]] = kind["size"];
    }
    EXPECT_EQ(kinds["video"],
              allocated(tree, "Videos/trip.MOV") + allocated(tree, "Videos/old/clip.mp4"));
    EXPECT_EQ(kinds["archive"], allocated(tree, "backup.tar.gz"));
    EXPECT_EQ(kinds["code"], allocated(tree, "src/main.cpp"));
    EXPECT_EQ(kinds["document"], allocated(tree, "src/Report.pdf"));
    EXPECT_EQ(kinds["other"], allocated(tree, "README"));
    EXPECT_EQ(types["extensions"][0]["extension"], "mov");
    EXPECT_EQ(types["noExtension"]["files"], 1);
    const auto typesText = session.run({"types", folder}, 0).standardOutput;
    EXPECT_NE(typesText.find("Video"), std::string::npos) << typesText;
    EXPECT_NE(typesText.find(".gz"), std::string::npos) << typesText;

    // Substrings in any case, globs on whole names, folders among the matches.
    const auto found = session.json({"find", folder, "REPORT"});
    EXPECT_EQ(found["matches"], 1);
    EXPECT_EQ(found["items"][0]["path"], "src/Report.pdf");
    const auto globbed = session.json({"find", folder, "*.m[op][4v]"});
    EXPECT_EQ(globbed["matches"], 2);
    EXPECT_EQ(globbed["items"][0]["path"], "Videos/trip.MOV");
    const auto folders = session.run({"find", folder, "o", "-n", "1"}, 0).standardOutput;
    EXPECT_NE(folders.find("Videos/\n"), std::string::npos) << folders;
    EXPECT_NE(folders.find("more (-n "), std::string::npos) << folders;
    EXPECT_EQ(session.json({"find", folder, "nothing like it"})["matches"], 0);

    // One folder of the saved scan; paths stay below the scanned folder.
    const auto videos = session.json({"top", folder, "--in", "Videos/"});
    ASSERT_EQ(videos["files"].size(), 2U);
    EXPECT_EQ(videos["files"][1]["path"], "Videos/old/clip.mp4");
    EXPECT_EQ(session.json({"types", folder, "--in=src"})["files"], 2);
    EXPECT_EQ(session.json({"find", folder, "*", "--in", "Videos/old"})["matches"], 1);
    EXPECT_NE(session.run({"top", folder, "--in", "Videos/trip.MOV"}, 1)
                  .standardError.find("has no folder Videos/trip.MOV"),
              std::string::npos);

    // Command lines that cannot work say why and change nothing.
    for (const auto& wrong : std::vector<std::vector<std::string>>{{"find", folder},
                                                                   {"find", folder, ""},
                                                                   {"top", folder, "-n", "0"},
                                                                   {"top", folder, "-n"},
                                                                   {"types", folder, "-n", "3"},
                                                                   {"top", folder, "extra"},
                                                                   {"top", folder, "--in"},
                                                                   {"top", "gdrive:Photos"}}) {
        EXPECT_EQ(session.cli.run(wrong).exitStatus, 2) << wrong.back();
    }
}

TEST(OverviewCommandsEndToEnd, ACloudAccountsSavedScanIsReadWithoutRclone) {
    Session session;
    TemporaryTree tree;
    session.sandbox.addRemote("files", "alias", {{"remote", tree.root()}});
    tree.file("music/song.mp3", 1'500'000);
    tree.file("b.zip", 1'200'000);
    session.run({"scan", "files:"}, 0);
    // The account's files and the account itself are gone: only the saved scan can answer.
    std::filesystem::remove_all(tree.location("music"));
    std::filesystem::remove(session.sandbox.configPath());

    const auto top = session.json({"top", "files:"});
    ASSERT_EQ(top["files"].size(), 2U);
    EXPECT_EQ(top["files"][0]["path"], "music/song.mp3");
    EXPECT_EQ(top["files"][0]["size"], 1'500'000);
    const auto types = session.json({"types", "files:"});
    EXPECT_EQ(types["size"], 2'700'000);
    EXPECT_EQ(session.json({"find", "files:", "SONG"})["items"][0]["size"], 1'500'000);
    EXPECT_EQ(session.json({"types", "files:", "--in", "music"})["size"], 1'500'000);
}

} // namespace
} // namespace brimvale::testing
