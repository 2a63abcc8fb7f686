#include "app/ApplicationCommandLine.h"

#include "tests/support/ProgramRun.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

using Action = ApplicationCommandLine::Action;

TEST(ApplicationCommandLine, OptionsFolderAndToolkitArguments) {
    EXPECT_EQ(ApplicationCommandLine::parse({}).action, Action::run);
    EXPECT_EQ(ApplicationCommandLine::parse({"--help"}).action, Action::printHelp);
    EXPECT_EQ(ApplicationCommandLine::parse({"/usr", "-h"}).action, Action::printHelp);
    EXPECT_EQ(ApplicationCommandLine::parse({"--version"}).action, Action::printVersion);

    const auto folder = ApplicationCommandLine::parse({"-platform", "offscreen", "/usr"});
    EXPECT_EQ(folder.action, Action::run);
    EXPECT_EQ(folder.folder, "/usr");
    EXPECT_EQ(folder.toolkitArguments, (std::vector<std::string>{"-platform", "offscreen"}));

    const auto unknown = ApplicationCommandLine::parse({"--frobnicate"});
    EXPECT_EQ(unknown.action, Action::usageError);
    EXPECT_EQ(unknown.error, "unknown option --frobnicate");
    EXPECT_EQ(ApplicationCommandLine::parse({"/a", "/b"}).action, Action::usageError);

    // After "--" everything is a folder, even a name that looks like an option.
    const auto dashed = ApplicationCommandLine::parse({"--", "--help"});
    EXPECT_EQ(dashed.action, Action::run);
    EXPECT_EQ(dashed.folder, "--help");
    // A toolkit option with its value missing at the end does not read past the arguments.
    EXPECT_EQ(ApplicationCommandLine::parse({"-style"}).toolkitArguments,
              (std::vector<std::string>{"-style"}));
}

// The real program answers --help and --version without any display.
TEST(ApplicationCommandLine, HelpAndVersionNeedNoDisplay) {
    const auto help = testing::runProgram({"env", "-u", "DISPLAY", "-u", "WAYLAND_DISPLAY",
                                           "QT_QPA_PLATFORM=xcb", BRIMVALE_APP_PROGRAM, "--help"});
    EXPECT_EQ(help.exitStatus, 0) << help.err;
    EXPECT_NE(help.out.find("Usage: brimvale"), std::string::npos);
    EXPECT_NE(help.out.find("brimvale-cli"), std::string::npos);

    const auto version = testing::runProgram(
        {"env", "-u", "DISPLAY", "QT_QPA_PLATFORM=xcb", BRIMVALE_APP_PROGRAM, "--version"});
    EXPECT_EQ(version.exitStatus, 0);
    EXPECT_EQ(version.out, ApplicationCommandLine::versionText());

    const auto wrong =
        testing::runProgram({"env", "-u", "DISPLAY", BRIMVALE_APP_PROGRAM, "--frobnicate"});
    EXPECT_EQ(wrong.exitStatus, 2);
    EXPECT_NE(wrong.err.find("unknown option --frobnicate"), std::string::npos);

    const auto notFolder =
        testing::runProgram({"env", "-u", "DISPLAY", BRIMVALE_APP_PROGRAM, "/nonexistent/folder"});
    EXPECT_EQ(notFolder.exitStatus, 1);
}

} // namespace
} // namespace brimvale
