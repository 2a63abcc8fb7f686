#include "core/rclone/BrimvaleError.h"
#include "core/rclone/DropboxAdapter.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"
#include "core/rclone/RclonePathResolver.h"
#include "core/rclone/RcloneProviderType.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

namespace fs = std::filesystem;
using testing::RcloneSandbox;

TEST(RclonePathResolver, SearchesTheFixedPlacesInOrderAndNeverPATH) {
    testing::TemporaryFolder folder;
    const auto place = [&](const std::string& relative) {
        const auto path = folder / relative;
        testing::writeFile(path, "#!/bin/sh\n");
        return path.string();
    };
    RcloneSearchLocations locations{
        .bundledCopies = {(folder / "prefix/share/brimvale/rclone").string(),
                          (folder / "app/bin/../share/brimvale/rclone").string()},
        .executableFolder = (folder / "app/bin").string(),
        .fixedPaths = {(folder / "opt/homebrew/bin/rclone").string(),
                       (folder / "usr/local/bin/rclone").string(),
                       (folder / "usr/bin/rclone").string()}};
    EXPECT_EQ(resolveRclonePath(locations), std::nullopt);
    fs::create_directories(folder / "app/bin/rclone"); // a folder of that name does not count
    EXPECT_EQ(resolveRclonePath(locations), std::nullopt);

    const auto usrBin = place("usr/bin/rclone");
    EXPECT_EQ(resolveRclonePath(locations), usrBin);
    const auto homebrew = place("opt/homebrew/bin/rclone");
    place("usr/local/bin/rclone");
    EXPECT_EQ(resolveRclonePath(locations), homebrew);
    fs::remove(folder / "app/bin/rclone");
    const auto beside = place("app/bin/rclone");
    EXPECT_EQ(resolveRclonePath(locations), beside);
    // The application's own copy beside the executable's folder wins over everything but
    // the one under the install prefix.
    const auto relative = place("app/share/brimvale/rclone");
    EXPECT_EQ(resolveRclonePath(locations), (folder / "app/share/brimvale/rclone").string());
    const auto prefix = place("prefix/share/brimvale/rclone");
    EXPECT_EQ(resolveRclonePath(locations), prefix);
    (void)relative;

    // A PATH that holds rclone changes nothing.
    const std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
    ::setenv("PATH", (folder / "usr/bin").c_str(), 1);
    EXPECT_EQ(resolveRclonePath({.fixedPaths = {"/nonexistent/rclone"}}), std::nullopt);
    ::setenv("PATH", path.c_str(), 1);

    // This installation's places end with the three fixed paths.
    const auto standard = RcloneSearchLocations::forExecutableFolder("/opt/brimvale/bin");
    EXPECT_EQ(standard.bundledCopies.back(), "/opt/brimvale/bin/../share/brimvale/rclone");
    EXPECT_EQ(standard.fixedPaths,
              (std::vector<std::string>{"/opt/homebrew/bin/rclone", "/usr/local/bin/rclone",
                                        "/usr/bin/rclone"}));
}

TEST(RcloneAdapter, ConfigurationOperationsOnARealConfiguration) {
    RcloneSandbox sandbox;
    sandbox.addRemote("bv_one", "memory");
    sandbox.addRemote("bv_two", "alias", {{"remote", "/tmp"}});
    sandbox.addRemote("keep", "  drive \t", {{"port", "22"}, {"team_drive", "TD"}});
    const GenericRcloneAdapter helper("helper", "", "Helper", {.runner = sandbox.realRunner()});

    EXPECT_EQ(helper.remotesFromConfig(),
              (std::vector<ConfiguredRemote>{
                  {"bv_one", "memory"}, {"bv_two", "alias"}, {"keep", "drive"}}));
    const auto dump = helper.configDumpDictionary();
    EXPECT_EQ(dump.at("bv_two").at("remote"), "/tmp");
    EXPECT_EQ(dump.at("keep").at("team_drive"), "TD");

    GenericRcloneAdapter keep("keep", "drive", "Keep", {.runner = sandbox.realRunner()});
    EXPECT_TRUE(keep.isConfigured({}));
    GenericRcloneAdapter missing("gone", "drive", "Gone", {.runner = sandbox.realRunner()});
    EXPECT_FALSE(missing.isConfigured({}));

    // A stub is created without questions, retyped when its type differs, left alone otherwise.
    helper.ensureRemoteStubExists("fresh", "sftp");
    helper.ensureRemoteStubExists("bv_one", "alias");
    const std::string before = testing::readFile(sandbox.configPath());
    helper.ensureRemoteStubExists("fresh", "sftp");
    EXPECT_EQ(testing::readFile(sandbox.configPath()), before);
    const auto retyped = helper.configDumpDictionary();
    EXPECT_EQ(retyped.at("fresh").at("type"), "sftp");
    EXPECT_EQ(retyped.at("bv_one").at("type"), "alias");

    EXPECT_EQ(helper.deleteRemotesWithNamePrefix("bv_"),
              (std::vector<std::string>{"bv_one", "bv_two"}));
    helper.deleteRemote("fresh");
    EXPECT_EQ(helper.remotesFromConfig(), (std::vector<ConfiguredRemote>{{"keep", "drive"}}));

    // An empty configuration has no remotes; a broken program fails clearly.
    RcloneSandbox empty;
    const GenericRcloneAdapter none("x", "", "X", {.runner = empty.realRunner()});
    EXPECT_TRUE(none.remotesFromConfig().empty());
    const GenericRcloneAdapter garbled("x", "", "X", {.runner = empty.fakeRunner("echo '[1]'")});
    try {
        garbled.configDumpDictionary();
        ADD_FAILURE() << "a dump that is not an object was accepted";
    } catch (const BrimvaleError& error) {
        EXPECT_EQ(error.description(), "Could not read cloud listing data: Could not parse the "
                                       "account configuration: expected an object of remotes but "
                                       "found array");
    }
}

TEST(RcloneConfigDump, ValuesBecomeText) {
    const auto dump = parseConfigDump(
        R"({"a":{"type":"s3","port":22,"ratio":1.5,"env_auth":true,"none":null,"list":[1,"x"]},
            "broken":"not a section"})");
    EXPECT_EQ(dump.size(), 1u);
    EXPECT_EQ(dump.at("a"), (RemoteConfigSection{{"type", "s3"},
                                                 {"port", "22"},
                                                 {"ratio", "1.5"},
                                                 {"env_auth", "true"},
                                                 {"list", R"([1,"x"])"}}));
    EXPECT_THROW(parseConfigDump("{"), BrimvaleError);
    // Values are printed back recursively, so nesting is capped; brackets in strings don't count.
    const auto nested = [](int depth) {
        return R"({"a":{"type":"x","deep":)" + std::string(depth, '[') + std::string(depth, ']') +
               R"(,"s":"[[[[[[[[[["}})";
    };
    EXPECT_EQ(parseConfigDump(nested(62)).at("a").at("deep").size(), 124u);
    try {
        parseConfigDump(nested(100000));
        ADD_FAILURE() << "deep nesting accepted";
    } catch (const BrimvaleError& error) {
        EXPECT_NE(error.description().find("nested deeper than 64 levels"), std::string::npos);
    }
    // A garbled dump is reported by where it breaks, never by quoting what it holds there.
    for (const std::string garbled :
         {R"({"box":{"pass":"hunter2SECRET)", "{\"box\":{\"pass\":\"hunter2SECRET\x01\"}}",
          R"({"box":{"pass":"hunter2SECRET\q"}})", R"({"box":{"pass":hunter2SECRET}})",
          "{\"box\":{\"pass\":\"hunter2SECRET\xff\"}}", R"({"box":{"pass":9e99999}})"}) {
        try {
            parseConfigDump(garbled);
            ADD_FAILURE() << "accepted " << garbled;
        } catch (const BrimvaleError& error) {
            EXPECT_NE(error.description().find("Could not parse the account configuration"),
                      std::string::npos);
            EXPECT_EQ(error.description().find("hunter"), std::string::npos) << error.description();
            EXPECT_EQ(error.description().find("99999"), std::string::npos) << error.description();
        }
    }
    EXPECT_EQ(RcloneProviderType::canonical(" drive\n"), "drive");
    EXPECT_EQ(configuredRemotes(parseConfigDump(R"({"n":{"port":"1"}})")),
              (std::vector<ConfiguredRemote>{{"n", ""}}));
}

} // namespace
} // namespace brimvale
