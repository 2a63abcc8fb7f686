#include "cli/RemotesCommand.h"

#include "cli/CommandLine.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace brimvale::cli {
namespace {

using brimvale::testing::RcloneSandbox;

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

Outcome runCli(const RcloneRunner& runner, std::vector<std::string> arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const CommandLine commandLine({remotesCommand(runner), lsCommand(runner)});
    const int status = commandLine.run(arguments, {out, err});
    return {status, out.str(), err.str()};
}

TEST(RemotesCommand, ListsRemotesWithTypesAndAccounts) {
    RcloneSandbox sandbox;
    const auto runner = sandbox.realRunner();
    EXPECT_EQ(runCli(runner, {"remotes"}).out,
              "No rclone remotes are configured. Add one with 'rclone config'.\n");
    EXPECT_EQ(runCli(runner, {"remotes", "--json"}).out, "[]\n");

    sandbox.addRemote("work-drive", "drive", {{"token", R"({"email":"me@example.com"})"}});
    sandbox.addRemote("box", "sftp", {{"host", "h"}, {"user", "ann"}});
    sandbox.addRemote("m", "memory");
    const auto table = runCli(runner, {"remotes"});
    EXPECT_EQ(table.status, 0);
    EXPECT_EQ(table.out, "NAME        TYPE    ACCOUNT\n"
                         "box         sftp    ann\n"
                         "m           memory  -\n"
                         "work-drive  drive   me@example.com\n");
    const auto json = nlohmann::json::parse(runCli(runner, {"remotes", "--json"}).out);
    EXPECT_EQ(json.size(), 3u);
    EXPECT_EQ(json[1], (nlohmann::json{{"name", "m"}, {"type", "memory"}, {"account", nullptr}}));

    const auto extra = runCli(runner, {"remotes", "x"});
    EXPECT_EQ(extra.status, 2);
    EXPECT_EQ(extra.err, "brimvale-cli remotes: unexpected argument 'x'\nUsage: brimvale-cli "
                         "remotes [--json]\n");

    const RcloneRunner missing({.searchLocations = {.fixedPaths = {"/nonexistent/rclone"}}});
    const auto notInstalled = runCli(missing, {"remotes"});
    EXPECT_EQ(notInstalled.status, 1);
    EXPECT_EQ(notInstalled.err,
              "brimvale-cli remotes: The cloud sync tool is not installed. Install it (for "
              "example: sudo apt install rclone) and try again.\n");
}

TEST(LsCommand, ListsOneFolderLargestFirst) {
    RcloneSandbox sandbox;
    const auto tree = sandbox.folder() / "tree";
    brimvale::testing::writeFileOfSize(tree / "small", 999);
    brimvale::testing::writeFileOfSize(tree / "large", 1250);
    brimvale::testing::writeFileOfSize(tree / "sub" / "deep", 5);
    sandbox.addRemote("here", "alias", {{"remote", tree.string()}});
    const auto runner = sandbox.realRunner();

    const auto listing = runCli(runner, {"ls", "here:"});
    EXPECT_EQ(listing.status, 0) << listing.err;
    EXPECT_EQ(listing.out, "   1.2 KB  large\n"
                           "999 bytes  small\n"
                           "        -  sub/\n"
                           "3 items: 1 folder, 2 files, 2.2 KB in files\n");
    EXPECT_EQ(runCli(runner, {"ls", "here:sub"}).out,
              "5 bytes  deep\n1 item: 0 folders, 1 file, 5 bytes in files\n");
    const auto json = nlohmann::json::parse(runCli(runner, {"ls", "here:sub", "--json"}).out);
    EXPECT_EQ(json["items"][0]["path"], "/sub/deep");
    EXPECT_EQ(json["items"][0]["sizeText"], "5 bytes");
    sandbox.addRemote("empty", "memory");
    EXPECT_EQ(runCli(runner, {"ls", "empty:"}).out, "(empty folder)\n");

    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } failures[] = {
        {{"ls"}, 2, "give the folder to list as REMOTE:PATH"},
        {{"ls", "a:", "b:"}, 2, "give exactly one REMOTE:PATH"},
        {{"ls", "/tmp/x"}, 2, "'/tmp/x' is not REMOTE:PATH"},
        {{"ls", ":x"}, 2, "':x' is not REMOTE:PATH"},
        {{"ls", "here:", "--long"}, 2, "unknown option '--long'"},
        {{"ls", "nowhere:x"},
         1,
         "Account \"nowhere\" is not set up yet. Run 'brimvale-cli remotes' to see the "
         "configured remotes."},
        {{"ls", "here:missing"}, 1, "directory not found"},
    };
    for (const auto& failure : failures) {
        const auto outcome = runCli(runner, failure.arguments);
        EXPECT_EQ(outcome.status, failure.status) << failure.arguments.back();
        EXPECT_NE(outcome.err.find(failure.error), std::string::npos) << outcome.err;
        EXPECT_TRUE(outcome.out.empty());
    }
}

} // namespace
} // namespace brimvale::cli
