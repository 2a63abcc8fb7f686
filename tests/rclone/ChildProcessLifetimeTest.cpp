#include "core/rclone/ChildProcess.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace brimvale {
namespace {

namespace fs = std::filesystem;

struct ProcessState {
    pid_t parent = 0;
    char state = '?';
};

// The process's state and parent from /proc, or nothing once it is gone.
std::optional<ProcessState> processState(pid_t pid) {
    std::string stat;
    try {
        stat = testing::readFile("/proc/" + std::to_string(pid) + "/stat");
    } catch (const std::exception&) {
        return std::nullopt;
    }
    const auto commEnd = stat.rfind(')');
    if (stat.empty() || commEnd == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream rest(stat.substr(commEnd + 2));
    ProcessState state;
    rest >> state.state >> state.parent;
    return state;
}

bool hasEnded(pid_t pid) {
    const auto state = processState(pid);
    // Reparented to a process that does not reap: a zombie has ended all the same.
    return !state || state->state == 'Z' || state->state == 'X';
}

std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> children;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        const pid_t pid = std::stoi(name);
        if (const auto state = processState(pid); state && state->parent == parent) {
            children.push_back(pid);
        }
    }
    return children;
}

struct Ready {};

TEST(ChildProcessLifetime, ChildrenOutliveTheThreadThatStartedThemButNotTheirProcess) {
    testing::RcloneSandbox sandbox;
    for (const int signal : {SIGKILL, SIGHUP}) {
        auto probe = ChildProcess::spawn({.executable = BRIMVALE_ORPHANED_CHILD_PROBE,
                                          .environmentChanges = sandbox.environment(),
                                          .standardInput = ChildStandardInput::nullDevice});
        std::string said;
        try {
            probe->collectOutputAndWait([&](ChildOutputStream, std::string_view chunk) {
                said.append(chunk);
                if (said.find("ready\n") != std::string::npos) {
                    throw Ready{};
                }
            });
            FAIL() << "the probe ended early: " << said;
        } catch (const Ready&) {
        }
        // The web configuration helper and the rcat run, whose starting thread has ended.
        const auto children = childrenOf(probe->pid());
        ASSERT_EQ(children.size(), 2u) << said;
        for (const pid_t child : children) {
            EXPECT_FALSE(hasEnded(child)) << child;
        }

        ::kill(probe->pid(), signal);
        EXPECT_EQ(probe->collectOutputAndWait().terminatingSignal, signal);
        for (const pid_t child : children) {
            EXPECT_TRUE(testing::waitUntil([&] { return hasEnded(child); }))
                << "rclone " << child << " outlived its parent (signal " << signal << ")";
        }
    }
}

TEST(ChildProcessLifetime, TheWebHelperOfAKilledCommandLineProgramStopsServing) {
    testing::RcloneSandbox sandbox;
    testing::TemporaryFolder home;
    const testing::CliProgram cli(sandbox, home.path());
    auto program = cli.start({"web-config"});
    std::string said;
    try {
        program->collectOutputAndWait([&](ChildOutputStream, std::string_view chunk) {
            said.append(chunk);
            if (said.find("(on this computer only") != std::string::npos) {
                throw Ready{};
            }
        });
        FAIL() << "web-config ended early: " << said;
    } catch (const Ready&) {
    }
    const auto children = childrenOf(program->pid());
    ASSERT_EQ(children.size(), 1u) << said;
    ::kill(program->pid(), SIGKILL);
    EXPECT_EQ(program->collectOutputAndWait().terminatingSignal, SIGKILL);
    EXPECT_TRUE(testing::waitUntil([&] { return hasEnded(children.front()); }))
        << "the web helper outlived brimvale-cli";
}

TEST(ChildProcessLifetime, AChildGetsOnlyItsThreeDescriptorsAndDefaultSignalHandling) {
    // A descriptor opened without close-on-exec, as some libraries do.
    const int leaky = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(leaky, 0);
    // Signals this process blocks and ignores must not carry over.
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigset_t previousMask;
    ::pthread_sigmask(SIG_BLOCK, &blocked, &previousMask);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction previousAction {};
    ::sigaction(SIGUSR2, &ignore, &previousAction);

    const auto result =
        ChildProcess::spawn(
            {.executable = "/bin/sh",
             .arguments = {"-c",
                           "[ -e /proc/self/fd/" + std::to_string(leaky) +
                               " ] && echo leaked; grep -E '^Sig(Blk|Ign)' /proc/self/status"},
             .standardInput = ChildStandardInput::nullDevice})
            ->collectOutputAndWait();
    ::pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    ::sigaction(SIGUSR2, &previousAction, nullptr);
    ::close(leaky);
    EXPECT_EQ(result.standardOutput, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");

    // With standard input and output closed here, the child's pipes get numbers 0 and 1 in
    // this process; they must still become the child's standard descriptors.
    const int savedInput = ::dup(STDIN_FILENO);
    const int savedOutput = ::dup(STDOUT_FILENO);
    ::close(STDIN_FILENO);
    ::close(STDOUT_FILENO);
    std::string echoed;
    std::string quiet;
    try {
        auto cat = ChildProcess::spawn({.executable = "/bin/sh",
                                        .arguments = {"-c", "cat; echo to-error >&2"},
                                        .standardInput = ChildStandardInput::pipe});
        cat->writeStandardInput("through the pipe\n");
        cat->closeStandardInput();
        const auto catResult = cat->collectOutputAndWait();
        echoed = catResult.standardOutput + catResult.standardError;
        quiet = ChildProcess::spawn({.executable = "/bin/sh",
                                     .arguments = {"-c", "read line || echo eof; echo x >&2"},
                                     .standardInput = ChildStandardInput::nullDevice,
                                     .outputs = ChildOutputs::nullDevice})
                    ->collectOutputAndWait()
                    .standardOutput;
    } catch (...) {
        ::dup2(savedInput, STDIN_FILENO);
        ::dup2(savedOutput, STDOUT_FILENO);
        throw;
    }
    ::dup2(savedInput, STDIN_FILENO);
    ::dup2(savedOutput, STDOUT_FILENO);
    ::close(savedInput);
    ::close(savedOutput);
    EXPECT_EQ(echoed, "through the pipe\nto-error\n");
    EXPECT_EQ(quiet, "");

    // A program that cannot be run is an error at once, and leaves no child behind.
    EXPECT_THROW(ChildProcess::spawn({.executable = "/nonexistent/program"}), std::system_error);
    EXPECT_THROW(ChildProcess::spawn({.executable = "/etc/hostname"}), std::system_error);
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

} // namespace
} // namespace brimvale
