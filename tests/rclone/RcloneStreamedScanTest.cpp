#include "core/rclone/BrimvaleError.h"
#include "core/rclone/FlatEntryReader.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"
#include "core/rclone/RcloneListingErrors.h"
#include "core/rclone/RcloneListingParser.h"
#include "core/rclone/RcloneListingPrefetch.h"
#include "core/rclone/RcloneListingStream.h"
#include "core/support/InMemorySettingsStore.h"
#include "core/support/Task.h"
#include "tests/rclone/RcloneScanTestSupport.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace brimvale {
namespace {

using testing::describe;
using testing::expectConsistent;
using testing::kSampleTree;
using testing::makeSampleTree;
using testing::RcloneSandbox;
using testing::scanServingMainQueue;
namespace fs = std::filesystem;

// Every folder's size is the sum of its children's, all the way down.
void expectRolledUp(const FileNode& node) {
    if (!node.isDirectory()) {
        return;
    }
    std::int64_t sum = 0;
    for (const auto& child : node.children()) {
        expectRolledUp(*child);
        sum += child->size();
    }
    EXPECT_EQ(node.size(), sum) << node.path();
}

std::vector<SkippedFolder> skippedFoldersOf(GenericRcloneAdapter& adapter,
                                            ScanParameters parameters,
                                            testing::ScanOutcome& outcome) {
    auto skipped = std::make_shared<std::vector<SkippedFolder>>();
    parameters.onSkippedFolder = [skipped](const SkippedFolder& folder) {
        skipped->push_back(folder);
    };
    outcome = scanServingMainQueue(adapter, std::move(parameters));
    return *skipped;
}

TEST(RcloneStreamedScan, ListsARealTreeInOneRunIntoRolledUpSizes) {
    RcloneSandbox sandbox;
    makeSampleTree(sandbox.folder() / "tree");
    sandbox.addRemote("local", "alias", {{"remote", (sandbox.folder() / "tree").string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local files", {.runner = sandbox.realRunner()});

    const auto outcome = scanServingMainQueue(adapter, {.path = "", .scanSession = 3});
    ASSERT_FALSE(outcome.failure);
    EXPECT_EQ(describe(*outcome.root), std::string(kSampleTree).replace(0, 4, "local"));
    expectConsistent(*outcome.root, 3);
    EXPECT_EQ(outcome.root->path(), "/");
    const FileNode& f1 = *outcome.root->children()[0]->children()[0]->children()[1];
    EXPECT_EQ(f1.path(), "/a/b/f1");
    EXPECT_EQ(f1.mimeType(), "application/octet-stream");
    EXPECT_DOUBLE_EQ(outcome.root->children()[0]->fractionOfParent(), 350.0 / 367.0);
    EXPECT_GE(outcome.partialTrees, 1);
    EXPECT_TRUE(outcome.partialTreesOnMainThread);
    ASSERT_FALSE(outcome.progress.empty());
    const ScanProgress& last = outcome.progress.back();
    EXPECT_EQ(last.stage, Stage::complete());
    EXPECT_EQ(last.filesScanned, 5);
    EXPECT_EQ(last.foldersScanned, 4);
    EXPECT_EQ(last.bytesAccountedFor, 367);

    // A folder below the top is rooted there; a folder named like a flag is no flag.
    testing::writeFileOfSize(sandbox.folder() / "tree" / "-x" / "f", 3);
    const auto sub = scanServingMainQueue(adapter, {.path = "a/b", .scanSession = 1});
    ASSERT_FALSE(sub.failure);
    EXPECT_EQ(describe(*sub.root), "b:300(f2:200 f1:100)");
    EXPECT_EQ(sub.root->children()[0]->path(), "/f2");
    const auto dashed = scanServingMainQueue(adapter, {.path = "-x", .scanSession = 1});
    ASSERT_FALSE(dashed.failure);
    EXPECT_EQ(describe(*dashed.root), "-x:3(f:3)");

    // Without a main queue everything happens on the scanning thread.
    int partialTrees = 0;
    const auto alone = adapter.scan({.path = "a", .partialStructure = [&](const FileNodeRef&) {
                                         ++partialTrees;
                                     }});
    EXPECT_EQ(describe(*alone), "a:350(b:300(f2:200 f1:100) g:50)");
    EXPECT_GE(partialTrees, 1);
}

TEST(RcloneStreamedScan, EntriesInAwkwardOrderAndLinesSplitAcrossReads) {
    RcloneSandbox sandbox;
    // A file before the folders that hold it, folders after their contents, two files of one
    // name, a folder and a file of one name, a quote and a line break in a name, non-Latin
    // names; lines cut in the middle, written a moment apart.
    const std::string script =
        R"(printf '[\n{"Path":"x/y/deep.bin","Name":"deep.bin","Size":5,"IsDir":false},\n{"Pa'
sleep 0.05
printf 'th":"z","Name":"z","Size":3,"IsDir":false},\n{"Path":"x","Name":"x","Size":-1,"IsDir":true,"ID":"id-x","ModTime":"2024-05-01T10:00:00Z"},\n'
printf '{"Path":"dup","Name":"dup","Size":4,"IsDir":false},\n{"Path":"dup","Name":"dup","Size":6,"IsDir":false},\n'
sleep 0.05
printf '{"Path":"same/inner","Name":"inner","Size":1,"IsDir":false},\n{"Path":"same","Name":"same","Size":9,"IsDir":false},\n{"Path":"same","Name":"same","Size":-1,"IsDir":true},\n'
printf '{"Path":"q\\"uo\\nte","Name":"q\\"uo\\nte","Size":2,"IsDir":false},\n{"Path":"\346\227\245/\321\204","Name":"\321\204","Size":8,"IsDir":false},\n{"Path":"x/y","Name":"y","Size":-1,"IsDir":true}\n'
sleep 0.05
printf ']'
)";
    GenericRcloneAdapter adapter("fake", "x", "Fake", {.runner = sandbox.fakeRunner(script)});
    const auto outcome = scanServingMainQueue(adapter, {.scanSession = 4});
    ASSERT_FALSE(outcome.failure);
    EXPECT_EQ(describe(*outcome.root),
              "fake:38(same:9 \xe6\x97\xa5:8(\xd1\x84:8) dup:6 "
              "x:5(y:5(deep.bin:5)) dup:4 z:3 q\"uo\nte:2 same:1(inner:1))");
    expectConsistent(*outcome.root, 4);
    const FileNode& x = *outcome.root->children()[3];
    EXPECT_EQ(x.providerID(), "id-x");
    EXPECT_TRUE(x.modifiedDate().has_value());
    EXPECT_EQ(x.children()[0]->children()[0]->path(), "/x/y/deep.bin");

    // Output that stops before the closing bracket, or is no listing at all, is an error.
    for (const std::string& body :
         {std::string(
              "printf '[\\n{\"Path\":\"a\",\"Name\":\"a\",\"Size\":1,\"IsDir\":false},\\n'"),
          std::string("echo 'oops'"),
          std::string("printf '[\\n{\"Path\":\"a\",\"Name\":\"a\",\"Size\":\"big\",\"IsDir\":false}"
                      "\\n]\\n'")}) {
        GenericRcloneAdapter broken("g", "x", "G", {.runner = sandbox.fakeRunner(body)});
        const auto bad = scanServingMainQueue(broken, {.scanSession = 1});
        ASSERT_TRUE(bad.failure) << body;
        const BrimvaleError error = testing::brimvaleErrorOf(bad.failure);
        EXPECT_TRUE(error.is<BrimvaleError::ParseError>()) << error.description();
        EXPECT_NE(error.description().find("Could not parse folder listing for g:"),
                  std::string::npos)
            << error.description();
    }
}

TEST(RcloneStreamedScan, ARescanKeepsFoldersAndFollowsEveryChange) {
    RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    makeSampleTree(tree);
    sandbox.addRemote("local", "alias", {{"remote", tree.string()}});
    GenericRcloneAdapter adapter("local", "alias", "Local", {.runner = sandbox.realRunner()});
    const auto first = scanServingMainQueue(adapter, {.path = "", .scanSession = 1});
    ASSERT_FALSE(first.failure);
    const FileNode* folderA = first.root->children()[0].get();
    ASSERT_EQ(folderA->name(), "a");

    // Folder b disappears, top.txt becomes a folder, g grows, c gets a file.
    fs::remove_all(tree / "a" / "b");
    fs::remove(tree / "top.txt");
    testing::writeFileOfSize(tree / "top.txt" / "inside", 1);
    testing::writeFileOfSize(tree / "a" / "g", 60);
    testing::writeFileOfSize(tree / "c" / "new", 2);

    const auto second =
        scanServingMainQueue(adapter, {.path = "", .scanSession = 2, .seedRoot = first.root});
    ASSERT_FALSE(second.failure);
    EXPECT_EQ(second.root, first.root);
    EXPECT_EQ(describe(*second.root),
              "local:70(a:60(g:60) sp ace & \xC3\xBC:7(x:7) c:2(new:2) top.txt:1(inside:1))");
    expectConsistent(*second.root, 2);
    EXPECT_EQ(second.root->children()[0].get(), folderA) << "a listed folder keeps its node";

    // A remote that lists nothing prunes everything.
    sandbox.addRemote("scratch", "memory");
    GenericRcloneAdapter memory("scratch", "memory", "Scratch", {.runner = sandbox.realRunner()});
    const auto emptied =
        scanServingMainQueue(memory, {.path = "", .scanSession = 9, .seedRoot = second.root});
    ASSERT_FALSE(emptied.failure);
    EXPECT_EQ(describe(*emptied.root), "local:0()");
}

TEST(RcloneStreamedScan, FoldersThatCannotBeReadAreReportedAndTheRestIsKept) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to run rclone as another user";
    }
    RcloneSandbox sandbox;
    fs::permissions(sandbox.folder().path(), fs::perms::all);
    const fs::path tree = sandbox.folder() / "tree";
    makeSampleTree(tree);
    testing::writeFileOfSize(tree / "a" / "b" / "deeper" / "hidden", 5);
    sandbox.addRemote("local", "alias", {{"remote", tree.string()}});
    fs::permissions(sandbox.configPath(),
                    fs::perms::owner_all | fs::perms::others_read | fs::perms::group_read);
    fs::permissions(tree / "a" / "b", fs::perms::none);
    // The real rclone, run as an unprivileged user, for whom folder b is closed.
    GenericRcloneAdapter adapter(
        "local", "alias", "Local",
        {.runner = sandbox.fakeRunner(
             "exec setpriv --reuid nobody --regid nogroup --clear-groups /usr/bin/rclone \"$@\"")});
    testing::ScanOutcome outcome;
    const auto skipped = skippedFoldersOf(adapter, {.scanSession = 1}, outcome);
    fs::permissions(tree / "a" / "b", fs::perms::owner_all);
    ASSERT_FALSE(outcome.failure);
    EXPECT_EQ(describe(*outcome.root),
              "local:67(a:50(g:50 b:0()) top.txt:10 sp ace & \xC3\xBC:7(x:7) c:0())");
    ASSERT_EQ(skipped.size(), 1u);
    EXPECT_EQ(skipped[0].location, "/a/b");
    EXPECT_NE(skipped[0].reason.find("permission denied"), std::string::npos) << skipped[0].reason;

    // When the listed folder itself cannot be read, nothing was listed: the scan fails.
    fs::permissions(tree, fs::perms::none);
    testing::ScanOutcome closed;
    const auto none = skippedFoldersOf(adapter, {.scanSession = 1}, closed);
    fs::permissions(tree, fs::perms::owner_all);
    ASSERT_TRUE(closed.failure);
    const BrimvaleError error = testing::brimvaleErrorOf(closed.failure);
    EXPECT_TRUE(error.is<BrimvaleError::ScanFailed>()) << error.description();
    EXPECT_NE(error.description().find("permission denied"), std::string::npos);
    EXPECT_TRUE(none.empty());

    // A remote that rclone does not know asks for set-up rather than showing rclone's words.
    GenericRcloneAdapter gone("gone", "sftp", "Gone", {.runner = sandbox.realRunner()});
    const auto missing = scanServingMainQueue(gone, {.scanSession = 1});
    ASSERT_TRUE(missing.failure);
    EXPECT_TRUE(testing::brimvaleErrorOf(missing.failure).is<BrimvaleError::RemoteNotConfigured>());
}

TEST(RcloneStreamedScan, StopEndsTheChildAndKeepsTheTreeSoFarRolledUp) {
    RcloneSandbox sandbox;
    const fs::path tree = sandbox.folder() / "tree";
    for (int i = 0; i < 40; ++i) {
        testing::writeFileOfSize(tree / ("d" + std::to_string(i)) / "sub" / "f.bin", 100 + i);
    }
    const auto sftp = testing::startSftpServer(sandbox, tree);
    sandbox.addRemote("sf", "sftp",
                      {{"host", "127.0.0.1"},
                       {"port", std::to_string(sftp.port)},
                       {"user", "u"},
                       {"pass", sandbox.obscured("p")}});
    // rclone's own rate limit makes the listing take seconds, as a far server would.
    auto environment = sandbox.environment();
    environment.push_back({"RCLONE_TPSLIMIT", "15"});
    GenericRcloneAdapter adapter(
        "sf", "sftp", "Server",
        {.runner = RcloneRunner({.searchLocations = {.fixedPaths = {"/usr/bin/rclone"}},
                                 .environmentChanges = environment})});

    std::stop_source stop;
    FileNodeRef lastPartial;
    ScanParameters parameters{.scanSession = 1, .stopToken = stop.get_token()};
    parameters.partialStructure = [&](const FileNodeRef& root) {
        lastPartial = root;
        if (root->size() > 0) {
            stop.request_stop();
        }
    };
    const auto started = std::chrono::steady_clock::now();
    const auto outcome = scanServingMainQueue(adapter, parameters);
    ASSERT_TRUE(outcome.failure);
    EXPECT_THROW(std::rethrow_exception(outcome.failure), CancellationError);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(15));
    for (const auto& child : testing::childProcessesOfThisProcess()) {
        EXPECT_EQ(child.pid, sftp.process->pid()) << "a child was left behind";
    }
    ASSERT_TRUE(lastPartial);
    EXPECT_GT(lastPartial->size(), 0);
    EXPECT_LT(lastPartial->size(), 40 * 100 + 780);
    expectRolledUp(*lastPartial);
}

TEST(RcloneStreamedScan, CommandLinesAndTheRecursiveListingFeature) {
    RcloneSandbox sandbox;
    const auto calls = sandbox.folder() / "calls";
    // Answers the features query with ListR and records every command line.
    const std::string recorder = "printf '%s|' \"$@\" >> '" + calls.string() + "'; echo >> '" +
                                 calls.string() +
                                 "'; if [ \"$1\" = backend ]; then "
                                 "echo '{\"Name\":\"gd\",\"Features\":{\"ListR\":true}}'; "
                                 "else echo '['; echo ']'; fi";
    auto settings = std::make_shared<InMemorySettingsStore>();
    GoogleDriveAdapter drive("gd", "Drive",
                             {.runner = sandbox.fakeRunner(recorder), .settings = settings});
    ASSERT_FALSE(scanServingMainQueue(drive, {.path = "Photos"}).failure);
    ASSERT_FALSE(scanServingMainQueue(drive, {.path = "Photos"}).failure);
    EXPECT_EQ(testing::readFile(calls),
              "backend|features|--|gd:|\n"
              "lsjson|-R|--fast-list|--exclude|Shared with me/**|--drive-skip-shortcuts|"
              "--drive-size-as-quota|--checkers|8|--|gd:Photos|\n"
              "lsjson|-R|--fast-list|--exclude|Shared with me/**|--drive-skip-shortcuts|"
              "--drive-size-as-quota|--checkers|8|--|gd:Photos|\n")
        << "the answer is asked once and kept";
    EXPECT_EQ(settings->stringValue("Brimvale.recursiveListingFeature.v1.gd"), "drive=yes");

    // The real rclone's answer for a backend without recursive listings.
    sandbox.addRemote("local", "alias", {{"remote", sandbox.folder().path().string()}});
    GenericRcloneAdapter local("local", "alias", "Local",
                               {.runner = sandbox.realRunner(), .settings = settings});
    EXPECT_FALSE(local.backendListsRecursively({}));
    EXPECT_EQ(settings->stringValue("Brimvale.recursiveListingFeature.v1.local"), "alias=no");
    EXPECT_FALSE(parseBackendListsRecursively("not json"));
    EXPECT_FALSE(parseBackendListsRecursively(R"({"Features":{"ListR":"yes"}})"));
    EXPECT_TRUE(parseBackendListsRecursively(R"({"Features":{"ListR":true,"Copy":true}})"));
}

TEST(RcloneListingStream, DecodesTheSameEntriesWhereverTheChunksAreCut) {
    const std::string output =
        "[\n{\"Path\":\"a\",\"Name\":\"a\",\"Size\":-1,\"IsDir\":true},\n"
        "{\"Path\":\"a/\\u00fc \\\"q\\\"\",\"Name\":\"\\u00fc \\\"q\\\"\",\"Size\":12,"
        "\"IsDir\":false,\"ID\":\"7\"},\n"
        "{\"Path\":\"b\",\"Name\":\"b\",\"Size\":0,\"IsDir\":false}\n]\n";
    for (std::size_t cut = 0; cut <= output.size(); ++cut) {
        RcloneListingStream stream("r:");
        std::vector<RcloneEntry> entries;
        stream.feed(std::string_view(output).substr(0, cut), entries);
        stream.feed(std::string_view(output).substr(cut), entries);
        stream.finish(entries);
        ASSERT_TRUE(stream.complete()) << cut;
        ASSERT_EQ(entries.size(), 3u) << cut;
        EXPECT_EQ(entries[1].name, "\xC3\xBC \"q\"");
        EXPECT_EQ(entries[1].path, "a/\xC3\xBC \"q\"");
        EXPECT_EQ(entries[1].rawSize, 12);
        EXPECT_EQ(entries[1].id, "7");
    }
    // An empty listing on one line, and the end of output without a closing bracket.
    RcloneListingStream empty("r:");
    std::vector<RcloneEntry> none;
    empty.feed("[]\n", none);
    EXPECT_TRUE(empty.complete());
    RcloneListingStream cut("r:");
    cut.feed("[\n{\"Path\":\"a\",\"Name\":\"a\",\"Size\":1,\"IsDir\":false}", none);
    cut.finish(none);
    EXPECT_FALSE(cut.complete());
    EXPECT_EQ(none.size(), 1u);
    RcloneListingStream after("r:");
    EXPECT_THROW(after.feed("[\n]\n{}\n", none), BrimvaleError);
}

TEST(RcloneListingErrors, UnreadableFoldersFromRclonesLog) {
    const std::string log =
        "2024/05/01 10:00:00 NOTICE: Config file \"/x\" not found - using defaults\n"
        "2024/05/01 10:00:00 ERROR : b/c: failed to open directory \"b/c\": open /srv/b/c: "
        "permission denied\n"
        "2024/05/01 10:00:01 ERROR : we\\\"ird: failed to open directory \"we\\\"ird \\u00fc\": "
        "open: permission denied\n"
        "2024/05/01 10:00:01 ERROR : photos/2019: error listing: unexpected EOF\n"
        "2024/05/01 10:00:01 ERROR : b/c: failed to open directory \"b/c\": again\n"
        "2024/05/01 10:00:02 ERROR : Attempt 1/3 failed with 2 errors and: x\n"
        "2024/05/01 10:00:02 Failed to lsjson with 2 errors: last error was: boom\n";
    const auto folders = unreadableFoldersInListingLog(log);
    ASSERT_EQ(folders.size(), 3u);
    EXPECT_EQ(folders[0].location, "/b/c");
    EXPECT_EQ(folders[0].reason, "open /srv/b/c: permission denied");
    EXPECT_EQ(folders[1].location, "/we\"ird \xC3\xBC");
    EXPECT_EQ(folders[2].location, "/photos/2019");
    EXPECT_EQ(folders[2].reason, "error listing: unexpected EOF");
    EXPECT_EQ(unreadableFoldersInListingLog(
                  "2024/05/01 10:00:00 ERROR : : failed to open directory \"\": denied\n")[0]
                  .location,
              "/");
    EXPECT_TRUE(unreadableFoldersInListingLog("").empty());
}

TEST(RcloneListingPrefetch, ARunStartedEarlyIsTakenOverWithEverythingItWrote) {
    RcloneSandbox sandbox;
    // Writes a first part at once and the rest when the file "go" appears.
    const auto go = sandbox.folder() / "go";
    const RcloneRunner runner =
        sandbox.fakeRunner("printf 'first|'; while [ ! -e '" + go.string() +
                           "' ]; do sleep 0.02; done; printf 'second'; echo oops >&2; exit 6");
    RcloneListingPrefetch prefetch;
    prefetch.start(runner, {"lsjson", "-R", "--", "a:"});
    EXPECT_FALSE(prefetch.takeAndRun({"lsjson", "-R", "--", "b:"}, [](std::string_view) {}, {}))
        << "another command line is not taken";
    ASSERT_TRUE(testing::waitUntil([] { return !testing::childProcessesOfThisProcess().empty(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::string seen;
    std::jthread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        testing::writeFile(go, "");
    });
    const auto result = prefetch.takeAndRun({"lsjson", "-R", "--", "a:"},
                                            [&](std::string_view chunk) { seen += chunk; }, {});
    ASSERT_TRUE(result);
    EXPECT_EQ(seen, "first|second");
    EXPECT_EQ(result->exitStatus, 6);
    EXPECT_EQ(result->standardError, "oops\n");
    EXPECT_FALSE(prefetch.takeAndRun({"lsjson", "-R", "--", "a:"}, [](std::string_view) {}, {}))
        << "a run is taken once";

    // A run nobody takes is stopped; so is a taken run whose taker stops.
    std::filesystem::remove(go);
    prefetch.start(runner, {"x"});
    prefetch.start(runner, {"y"});
    ASSERT_TRUE(
        testing::waitUntil([] { return testing::childProcessesOfThisProcess().size() == 2; }));
    std::stop_source stop;
    std::jthread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        stop.request_stop();
    });
    EXPECT_THROW(prefetch.takeAndRun(
                     {"y"}, [](std::string_view) {}, stop.get_token()),
                 CancellationError);
    prefetch.cancelAll();
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

TEST(FlatEntryReader, AgreesWithTheGeneralDecoderOrLeavesTheLineToIt) {
    // Lines the quick reader takes: it must decode exactly what the general decoder does.
    for (
        const std::string line : {
            R"({"Path":"a/b","Name":"b","Size":-1,"MimeType":"inode/directory","ModTime":"2024-05-01T10:00:00Z","IsDir":true})",
            R"({ "Path" : "x" , "Name":"x", "Size": 9223372036854775807, "IsDir": false, "ID": null, "Tier":"STANDARD", "Encrypted": true, "Extra": 3 })",
            R"({"Path":"q\"\\\/\b\f\n\r\t","Name":"\u00fc\ud83d\ude00","Size":-9223372036854775808,"IsDir":false})",
            R"({"Path":"a","Path":"b","Name":"n","Size":0,"IsDir":false,"IsDir":true})",
            "{\"Path\":\"\xE6\x97\xA5\",\"Name\":\"\xE6\x97\xA5\",\"Size\":1,\"IsDir\":false}",
        }) {
        const auto quick = readFlatEntry(line);
        ASSERT_TRUE(quick) << line;
        const auto general = parseJSON("[" + line + "]", "t:");
        ASSERT_EQ(general.size(), 1u);
        EXPECT_EQ(*quick, general[0]) << line;
    }
    // Lines it leaves to the general decoder: fractions and exponents, nested values, missing
    // or mistyped keys, overflow, bad escapes, ill-formed UTF-8, trailing text.
    for (const std::string line : {
             R"({"Path":"a","Name":"a","Size":1e3,"IsDir":false})",
             R"({"Path":"a","Name":"a","Size":12.0,"IsDir":false})",
             R"({"Path":"a","Name":"a","Size":1,"IsDir":false,"Hashes":{"md5":"x"}})",
             R"({"Path":"a","Name":"a","Size":1})",
             R"({"Path":"a","Name":"a","Size":"1","IsDir":false})",
             R"({"Path":"a","Name":"a","Size":9223372036854775808,"IsDir":false})",
             R"({"Path":"a\x","Name":"a","Size":1,"IsDir":false})",
             R"({"Path":"\ud800","Name":"a","Size":1,"IsDir":false})",
             "{\"Path\":\"\xC0\xAF\",\"Name\":\"a\",\"Size\":1,\"IsDir\":false}",
             "{\"Path\":\"\xED\xA0\x80\",\"Name\":\"a\",\"Size\":1,\"IsDir\":false}",
             R"({"Path":"a","Name":"a","Size":01,"IsDir":false})",
             R"({"Path":"a","Name":"a","Size":1,"IsDir":false} x)",
             R"({"Path":"a","Name":null,"Size":1,"IsDir":false})",
         }) {
        EXPECT_FALSE(readFlatEntry(line)) << line;
    }
}

} // namespace
} // namespace brimvale
