#include "core/rclone/ChildProcess.h"

#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace brimvale {
namespace {

using namespace std::chrono_literals;

std::unique_ptr<ChildProcess> shell(const std::string& script, ChildStandardInput input,
                                    ChildOutputs outputs = ChildOutputs::pipes) {
    return ChildProcess::spawn({.executable = "/bin/sh",
                                .arguments = {"-c", script},
                                .killGracePeriod = 2s,
                                .standardInput = input,
                                .outputs = outputs});
}

TEST(ChildProcess, StandardInputPipeAndOutputSeenAsItArrives) {
    // The child prints to standard error, then waits for a line on standard input: the
    // observer must see the first text while the child still runs.
    auto child = shell("echo ready >&2; read line; echo \"got $line\"; echo done >&2",
                       ChildStandardInput::pipe);
    std::promise<void> sawReady;
    std::string seenError;
    std::string seenOutput;
    auto collected = std::async(std::launch::async, [&] {
        bool signalled = false;
        return child->collectOutputAndWait([&](ChildOutputStream stream, std::string_view chunk) {
            (stream == ChildOutputStream::standardError ? seenError : seenOutput).append(chunk);
            if (!signalled && seenError.find("ready\n") != std::string::npos) {
                signalled = true;
                sawReady.set_value();
            }
        });
    });
    ASSERT_EQ(sawReady.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(child->isRunning());
    EXPECT_TRUE(child->writeStandardInput("hello "));
    EXPECT_TRUE(child->writeStandardInput("world\n"));
    const ChildProcessResult result = collected.get();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.standardOutput, "got hello world\n");
    EXPECT_EQ(result.standardError, "ready\ndone\n");
    EXPECT_EQ(seenOutput, result.standardOutput);
    EXPECT_EQ(seenError, result.standardError);
    EXPECT_FALSE(child->isRunning());
    // Writing to a child that is gone fails quietly (no SIGPIPE ends this test program).
    EXPECT_FALSE(child->writeStandardInput("late\n"));
    child->closeStandardInput();
    EXPECT_FALSE(child->writeStandardInput("closed\n"));
}

TEST(ChildProcess, LargeInputWhileOutputIsDrainedAndEndOfInput) {
    // cat echoes 4 MiB back: writing blocks unless the output is read at the same time.
    auto child = shell("cat; echo end >&2", ChildStandardInput::pipe);
    std::string input(4 << 20, '\0');
    for (std::size_t i = 0; i < input.size(); ++i) {
        input[i] = static_cast<char>('a' + i % 26);
    }
    auto collected = std::async(std::launch::async, [&] { return child->collectOutputAndWait(); });
    EXPECT_TRUE(child->writeStandardInput(input));
    child->closeStandardInput(); // cat sees end of file and exits
    const auto result = collected.get();
    EXPECT_EQ(result.standardOutput.size(), input.size());
    EXPECT_TRUE(result.standardOutput == input);
    EXPECT_EQ(result.standardError, "end\n");

    // Terminating a child blocked on a write it never reads unblocks the writer.
    auto stuck = shell("exec sleep 30", ChildStandardInput::pipe);
    auto writer = std::async(std::launch::async, [&] { return stuck->writeStandardInput(input); });
    std::this_thread::sleep_for(50ms);
    stuck->terminate();
    EXPECT_FALSE(writer.get());
    EXPECT_EQ(stuck->collectOutputAndWait().terminatingSignal, 15);
}

TEST(ChildProcess, NullDeviceInputAndOutputs) {
    // Input from the null device: a read ends at once instead of waiting on a terminal.
    const auto reader =
        shell("if read line; then echo read; else echo eof; fi", ChildStandardInput::nullDevice);
    EXPECT_EQ(reader->collectOutputAndWait().standardOutput, "eof\n");
    EXPECT_FALSE(reader->writeStandardInput("x"));

    // Output to the null device: far more than a pipe holds never blocks the child.
    const auto talker = shell("head -c 3000000 /dev/zero; head -c 3000000 /dev/zero >&2; exit 4",
                              ChildStandardInput::nullDevice, ChildOutputs::nullDevice);
    const auto result = talker->collectOutputAndWait();
    EXPECT_EQ(result.exitStatus, 4);
    EXPECT_TRUE(result.standardOutput.empty());
    EXPECT_TRUE(result.standardError.empty());
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

} // namespace
} // namespace brimvale
