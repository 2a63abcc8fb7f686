// Names that are not UTF-8 (legal on Linux) through brimvale-cli as a person runs it: scanned,
// written as JSON, saved, reopened and remembered in the settings, each keeping its bytes.
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/support/QSettingsStore.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>

namespace brimvale::testing {
namespace {

// Every node of a `--json` tree as path bytes → size, read the way the README tells scripts to.
std::map<std::string, std::int64_t> nodesOfJson(const std::filesystem::path& file) {
    const std::string script = R"(
import json, sys
def walk(node):
    print(node["path"].encode("utf-8", "surrogateescape").hex(), node["size"])
    for child in node.get("children", []):
        walk(child)
walk(json.loads(open(sys.argv[1], "rb").read()))
)";
    const auto result = runProgram({"python3", "-c", script, file.string()});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    std::map<std::string, std::int64_t> nodes;
    std::istringstream lines(result.out);
    std::string hex;
    std::int64_t size = 0;
    while (lines >> hex >> size) {
        std::string path;
        for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
            path.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
        }
        nodes[path] = size;
    }
    return nodes;
}

TEST(NonUtf8NamesEndToEnd, NamesKeepTheirBytesInJsonSavedScansAndSettings) {
    RcloneSandbox sandbox;
    TemporaryFolder home;
    CliProgram cli{sandbox, home.path()};
    TemporaryTree tree;
    tree.file("caf\xE9/caf\xE9.txt", 5'000);
    tree.file("caf\xE9/caf\xE8.txt", 20'000);
    tree.file("caf\xE9/d\xFF/in.bin", 9'000);
    tree.file("caf\xE9/d\xFF/n\xFE", 100);
    const std::string folder = tree.location("caf\xE9");
    const std::string top = folder.substr(1);
    const std::map<std::string, std::int64_t> expected = {
        {top, tree.allocatedBytesOfEntriesByDu("caf\xE9")},
        {top + "/caf\xE9.txt", tree.allocatedBytesOfEntriesByDu("caf\xE9/caf\xE9.txt")},
        {top + "/caf\xE8.txt", tree.allocatedBytesOfEntriesByDu("caf\xE9/caf\xE8.txt")},
        {top + "/d\xFF", tree.allocatedBytesOfEntriesByDu("caf\xE9/d\xFF")},
        {top + "/d\xFF/in.bin", tree.allocatedBytesOfEntriesByDu("caf\xE9/d\xFF/in.bin")},
        {top + "/d\xFF/n\xFE", tree.allocatedBytesOfEntriesByDu("caf\xE9/d\xFF/n\xFE")},
    };

    const auto scanned = cli.run({"scan", "--json", folder});
    ASSERT_EQ(scanned.exitStatus, 0) << scanned.standardError;
    writeFile(home.path() / "scan.json", scanned.standardOutput);
    EXPECT_EQ(nodesOfJson(home.path() / "scan.json"), expected);

    // The saved scan is found again under its key, and holds the same names.
    const auto again = cli.run({"scan", folder});
    ASSERT_EQ(again.exitStatus, 0) << again.standardError;
    EXPECT_NE(again.standardOutput.find("cached just now"), std::string::npos)
        << again.standardOutput;
    const auto savedFile = cli.cacheDirectory() /
                           ScanCache::fileNameFor(LocalScanCacheStem::stem("localdisk", folder));
    const auto shown = cli.run({"cache", "show", savedFile.string(), "--json"});
    ASSERT_EQ(shown.exitStatus, 0) << shown.standardError;
    writeFile(home.path() / "saved.json", shown.standardOutput);
    EXPECT_EQ(nodesOfJson(home.path() / "saved.json"), expected);

    // The settings file remembers the folder as it is.
    const QSettingsStore settings((home.path() / "config/Brimvale/Brimvale.conf").string());
    EXPECT_EQ(settings.stringValue(SettingsKeys::localScanPath("localdisk")), folder);
}

} // namespace
} // namespace brimvale::testing
