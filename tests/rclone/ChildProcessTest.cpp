#include "core/rclone/ChildProcess.h"

#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>
#include <unistd.h>

namespace brimvale {
namespace {

using namespace std::chrono_literals;

std::unique_ptr<ChildProcess> shell(const std::string& script, ChildStandardInput input,
                                    ChildOutputs outputs = ChildOutputs::pipes) {
    return ChildProcess::spawn({.executable = "/bin/sh",
                                .arguments = {"-c", script},
                                .standardInput = input,
                                .outputs = outputs});
}

TEST(ChildProcess, InputPipeAndOutputSeenWhileTheChildRuns) {
    // The child says "ready" on standard error, then waits for a line: the observer must see
    // "ready" while the child runs, or this never ends.
    auto child = shell("echo ready >&2; read line; echo \"got $line\"", ChildStandardInput::pipe);
    std::string seen;
    const auto result =
        child->collectOutputAndWait([&](ChildOutputStream stream, std::string_view chunk) {
            seen.append(chunk);
            if (stream == ChildOutputStream::standardError && seen == "ready\n") {
                EXPECT_TRUE(child->writeStandardInput("hello\n"));
            }
        });
    EXPECT_EQ(result.standardOutput, "got hello\n");
    EXPECT_EQ(seen, "ready\ngot hello\n");
    // Writing to a child that is gone fails quietly (no SIGPIPE ends this program).
    EXPECT_FALSE(child->writeStandardInput("late\n"));

    // 4 MiB through cat: the writer blocks unless the output is drained at the same time.
    auto cat = shell("cat", ChildStandardInput::pipe);
    const std::string input(4 << 20, 'x');
    auto collected = std::async(std::launch::async, [&] { return cat->collectOutputAndWait(); });
    EXPECT_TRUE(cat->writeStandardInput(input));
    cat->closeStandardInput();
    EXPECT_EQ(collected.get().standardOutput.size(), input.size());

    // Terminating a child that never reads unblocks a writer stuck on it.
    auto stuck = shell("exec sleep 30", ChildStandardInput::pipe);
    auto writer = std::async(std::launch::async, [&] { return stuck->writeStandardInput(input); });
    std::this_thread::sleep_for(50ms);
    stuck->terminate();
    EXPECT_FALSE(writer.get());
    EXPECT_EQ(stuck->collectOutputAndWait().terminatingSignal, 15);
}

TEST(ChildProcess, NullDeviceInputAndOutputs) {
    // A read from the null device ends at once instead of waiting on a terminal.
    EXPECT_EQ(shell("read line || echo eof", ChildStandardInput::nullDevice)
                  ->collectOutputAndWait()
                  .standardOutput,
              "eof\n");
    // Far more output than a pipe holds never blocks a child writing to the null device.
    const auto result = shell("head -c 3000000 /dev/zero; head -c 3000000 /dev/zero >&2; exit 4",
                              ChildStandardInput::nullDevice, ChildOutputs::nullDevice)
                            ->collectOutputAndWait();
    EXPECT_EQ(result.exitStatus, 4);
    EXPECT_EQ(result.standardOutput + result.standardError, "");
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

TEST(ChildProcess, OutputWrittenInSmallPiecesIsGatheredWithoutLosingOrReorderingAByte) {
    // 2,000 lines, one write each, with a pause in the middle until we have read the first
    // half (so it is read while the child runs), then 2 MB at once (more than the output file
    // keeps in memory behind the reader).
    const auto flag = std::filesystem::temp_directory_path() /
                      ("brimvale-child-flag-" + std::to_string(::getpid()));
    std::filesystem::remove(flag);
    const std::string script =
        "i=0; while [ $i -lt 1000 ]; do echo line$i; i=$((i+1)); done; t=0; "
        "while [ ! -e '" +
        flag.string() +
        "' ] && [ $t -lt 1000 ]; do sleep 0.01; t=$((t+1)); "
        "done; [ $t -lt 1000 ] || echo 'not read while running' >&2; "
        "while [ $i -lt 2000 ]; do echo line$i; i=$((i+1)); done; seq 1 300000; echo tail >&2";
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        expected += "line" + std::to_string(i) + "\n";
    }
    for (int i = 1; i <= 300000; ++i) {
        expected += std::to_string(i) + "\n";
    }
    auto child = ChildProcess::spawn({.executable = "/bin/sh",
                                      .arguments = {"-c", script},
                                      .standardInput = ChildStandardInput::nullDevice,
                                      .outputs = ChildOutputs::memoryFileAndPipe});
    std::string seen;
    int chunks = 0;
    const auto result = child->collectOutputAndWait(
        [&](ChildOutputStream stream, std::string_view chunk) {
            if (stream != ChildOutputStream::standardOutput) {
                return;
            }
            seen.append(chunk);
            ++chunks;
            if (seen.ends_with("line999\n")) {
                std::ofstream{flag};
            }
        },
        false);
    std::filesystem::remove(flag);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(result.standardOutput, "") << "not kept: the observer had it";
    EXPECT_EQ(result.standardError, "tail\n");
    EXPECT_LT(chunks, 500) << "one read per write";
}

} // namespace
} // namespace brimvale
