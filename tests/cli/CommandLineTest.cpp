#include "cli/CommandLine.h"

#include "cli/Commands.h"
#include "core/support/Version.h"
#include "tests/support/CliRun.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace brimvale::cli {
namespace {

using brimvale::testing::runCli;

TEST(CommandLine, HelpVersionAndUsageErrors) {
    const auto help = runCli({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Usage: brimvale-cli COMMAND"), std::string::npos);
    EXPECT_NE(help.out.find("  size"), std::string::npos);
    EXPECT_EQ(runCli({"-h"}).out, help.out);
    EXPECT_EQ(runCli({"help"}).out, help.out);

    const auto version = runCli({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, std::string("brimvale-cli ") + kVersion + "\n");

    const struct {
        std::vector<std::string> arguments;
        const char* message;
    } usageErrors[] = {
        {{}, "no command given"},
        {{"frobnicate"}, "unknown command 'frobnicate'"},
        {{"--frobnicate"}, "unknown option '--frobnicate'"},
        {{"help", "frobnicate"}, "no help for unknown command 'frobnicate'"},
        {{"size"}, "give at least one byte count"},
        {{"size", "12x"}, "'12x' is not a whole number of bytes"},
        {{"size", ""}, "'' is not a whole number of bytes"},
        {{"size", "99999999999999999999"}, "does not fit in a signed 64-bit byte count"},
    };
    for (const auto& [arguments, message] : usageErrors) {
        const auto outcome = runCli(arguments);
        EXPECT_EQ(outcome.status, exitUsage) << message;
        EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST(CommandLine, CommandHelpAndARealCommand) {
    const auto commandHelp = runCli({"size", "--help"});
    EXPECT_EQ(commandHelp.status, 0);
    EXPECT_NE(commandHelp.out.find("Usage: brimvale-cli size BYTES..."), std::string::npos);
    EXPECT_EQ(runCli({"help", "size"}).out, commandHelp.out);

    const auto sizes = runCli({"size", "999", "1250", "-5", "99950", "9223372036854775807"});
    EXPECT_EQ(sizes.status, 0);
    EXPECT_EQ(sizes.out, "999 bytes\n1.2 KB\n-5 bytes\n100 KB\n9223372 TB\n");
}

} // namespace
} // namespace brimvale::cli
