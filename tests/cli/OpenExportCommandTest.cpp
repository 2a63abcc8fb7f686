#include "core/interchange/NcduExportReader.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/support/FileBytes.h"
#include "tests/support/CliRun.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryTree.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <fstream>
#include <map>

namespace brimvale::cli {
namespace {

using brimvale::testing::runCli;
using brimvale::testing::runProgram;
using brimvale::testing::TemporaryTree;

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

const std::string kExport =
    "[1,2,{\"progname\":\"ncdu\",\"progver\":\"1.18\",\"timestamp\":1700000000},\n"
    "[{\"name\":\"/srv\",\"asize\":4096,\"dsize\":4096},\n"
    "{\"name\":\"big.iso\",\"asize\":3000000,\"dsize\":3002368},\n"
    "[{\"name\":\"private\",\"asize\":4096,\"dsize\":4096,\"read_error\":true}],\n"
    "{\"name\":\"proc\",\"excluded\":\"kernfs\"}]]\n";

TEST(OpenCommand, ListsPlainAndGzipExportsAndRefusesBadOnes) {
    QTemporaryDir folder;
    const std::string plain = folder.path().toStdString() + "/scan.json";
    writeText(plain, kExport);
    ASSERT_EQ(runProgram({"gzip", "-k", plain}).exitStatus, 0);

    for (const std::string& file : {plain, plain + ".gz"}) {
        SCOPED_TRACE(file);
        const auto listing = runCli({"open", file, "--depth", "2"});
        ASSERT_EQ(listing.status, 0) << listing.err;
        EXPECT_NE(listing.out.find("/srv  3 MB  (2 files, 2 folders)  exported by ncdu 1.18, "
                                   "2023-11-14T22:13:20Z"),
                  std::string::npos)
            << listing.out;
        EXPECT_NE(listing.out.find("private/  (read error)"), std::string::npos);
        EXPECT_NE(listing.out.find("proc  (excluded: kernfs)"), std::string::npos);
    }
    const auto json = runCli({"open", plain + ".gz", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const auto tree = nlohmann::json::parse(json.out);
    EXPECT_EQ(tree["size"], 4096 + 3002368 + 4096);
    EXPECT_EQ(tree["children"][0]["path"], "/srv/big.iso");

    // Damaged, cut or foreign files: a message naming the problem, exit status 1.
    const std::string cut = folder.path().toStdString() + "/cut.json";
    writeText(cut, kExport.substr(0, 100));
    const std::string cutGzip = folder.path().toStdString() + "/cut.json.gz";
    const auto gzipBytes = readFileBytes(plain + ".gz").bytes;
    writeText(cutGzip, std::string(gzipBytes.begin(), gzipBytes.end() - 20));
    const std::string zstd = folder.path().toStdString() + "/scan.json.zst";
    writeText(zstd, std::string("\x28\xb5\x2f\xfd", 4) + "rest");
    const std::string binary = folder.path().toStdString() + "/scan.bin";
    writeText(binary, std::string("\0\x01\x02", 3));
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    } cases[] = {
        {{"open", cut}, 1, "is not a scan export Brimvale can read: the text ends inside"},
        {{"open", cutGzip}, 1, "gzip data of"},
        {{"open", zstd}, 1, "compressed with zstd; decompress it first"},
        {{"open", binary}, 1, "expected '[' in the export at byte 0"},
        {{"open", folder.path().toStdString() + "/missing.json"}, 1, "cannot open"},
        {{"open", folder.path().toStdString()}, 1, "cannot read"},
        {{"open"}, 2, "give the export file"},
        {{"open", plain, "--json", "--top", "3"}, 2, "--json writes the whole tree"},
    };
    for (const auto& example : cases) {
        SCOPED_TRACE(example.arguments.back());
        const auto outcome = runCli(example.arguments);
        EXPECT_EQ(outcome.status, example.status);
        EXPECT_NE(outcome.err.find(example.message), std::string::npos) << outcome.err;
    }
}

TEST(ExportCommand, WritesTheSavedScanOfAFolderThatOpensWithTheSameSizes) {
    TemporaryTree tree;
    tree.file("music/song.flac", 700'000);
    tree.file("notes \"draft\".txt", 5000);
    tree.hardLink("music/song.flac", "song-link.flac");
    QTemporaryDir folder;
    const std::string output = folder.path().toStdString() + "/scan.json";

    const auto before = runCli({"export", tree.root(), "-o", output});
    EXPECT_EQ(before.status, 1);
    EXPECT_NE(before.err.find("there is no saved scan of"), std::string::npos) << before.err;
    EXPECT_FALSE(QFile::exists(QString::fromStdString(output)));

    const auto scan = runCli({"scan", tree.root(), "--json", "--quiet"});
    ASSERT_EQ(scan.status, 0) << scan.err;
    const auto scanned = nlohmann::json::parse(scan.out);

    ASSERT_EQ(runCli({"export", tree.root(), "-o", output}).status, 0);
    const auto opened = runCli({"open", output, "--json"});
    ASSERT_EQ(opened.status, 0) << opened.err;
    const auto reopened = nlohmann::json::parse(opened.out);
    EXPECT_EQ(reopened["size"], scanned["size"]);
    EXPECT_EQ(reopened["name"], tree.root());
    std::map<std::string, std::int64_t> scannedSizes;
    std::map<std::string, std::int64_t> openedSizes;
    for (const auto& item : scanned["children"]) {
        scannedSizes[item["name"]] = item["size"];
    }
    for (const auto& item : reopened["children"]) {
        openedSizes[item["name"]] = item["size"];
    }
    EXPECT_EQ(openedSizes, scannedSizes);

    // Standard output by default; the same text.
    const auto toStdout = runCli({"export", tree.root()});
    ASSERT_EQ(toStdout.status, 0);
    const auto fileBytes = readFileBytes(output).bytes;
    EXPECT_EQ(toStdout.out, std::string(fileBytes.begin(), fileBytes.end()));

    // A file that cannot be written leaves nothing behind and says why.
    const auto unwritable =
        runCli({"export", tree.root(), "-o", folder.path().toStdString() + "/no/such/x.json"});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_NE(unwritable.err.find("cannot write"), std::string::npos) << unwritable.err;
    EXPECT_EQ(runCli({"export", "nosuchaccount:"}).status, 1);
    EXPECT_EQ(runCli({"export", tree.root(), "-o"}).status, 2);
    EXPECT_EQ(runCli({"export", "gdrive:photos"}).status, 2);
}

TEST(ExportCommand, ACloudAccountsSavedScanGoesOutWithItsSizesAsBothSizes) {
    auto video =
        FileNode::make({.name = "holiday.mov", .path = "/Videos/holiday.mov", .size = 3'000'001});
    auto videos = FileNode::make({.name = "Videos",
                                  .path = "/Videos",
                                  .isDirectory = true,
                                  .size = 3'000'001,
                                  .children = {video}});
    auto root = FileNode::make({.name = "drive",
                                .path = "/",
                                .isDirectory = true,
                                .size = 3'000'001,
                                .children = {videos}});
    ScanCache cache;
    cache.write(*encodeCacheSnapshot(snapshotForCache(*root)), "drive");

    const auto exported = runCli({"export", "drive:"});
    ASSERT_EQ(exported.status, 0) << exported.err;
    EXPECT_NE(exported.out.find("{\"name\":\"drive:\"}"), std::string::npos) << exported.out;
    EXPECT_NE(exported.out.find("{\"name\":\"holiday.mov\",\"asize\":3000001,\"dsize\":3000001"),
              std::string::npos)
        << exported.out;
    QTemporaryDir folder;
    const std::string file = folder.path().toStdString() + "/drive.json";
    writeText(file, exported.out);
    const auto opened = runCli({"open", file, "--json"});
    ASSERT_EQ(opened.status, 0) << opened.err;
    EXPECT_EQ(nlohmann::json::parse(opened.out)["size"], 3'000'001);
}

} // namespace
} // namespace brimvale::cli
